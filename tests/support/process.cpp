#include "tests/support/process.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>

namespace support {
namespace {

std::map<std::string, ChildBody>& Bodies() {
  static std::map<std::string, ChildBody> bodies;
  return bodies;
}

constexpr std::string_view kSwitch = "--child=";

}  // namespace

ChildRegistration::ChildRegistration(const char* name, ChildBody body) { Bodies()[name] = body; }

std::optional<int> RunChildBody(int argc, char** argv) {
  if (argc < 2 || !std::string_view(argv[1]).starts_with(kSwitch)) return std::nullopt;
  const std::string name = std::string(argv[1]).substr(kSwitch.size());
  const auto body = Bodies().find(name);
  if (body == Bodies().end()) {
    std::cerr << "no child body '" << name << "'\n";
    return 125;
  }
  return body->second(std::vector<std::string>(argv + 2, argv + argc));
}

Process StartChild(const std::string& name, std::vector<std::string> arguments,
                   std::vector<std::pair<std::string, std::string>> environment) {
  arguments.insert(arguments.begin(), std::string(kSwitch) + name);
  return Process({.program = OwnPath(), .arguments = std::move(arguments), .environment = std::move(environment)});
}

void Say(const std::string& line) { std::cout << line << std::endl; }

std::string Hear() {
  std::string line;
  std::getline(std::cin, line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::string Beside(const std::string& file) { return (std::filesystem::path(OwnPath()).parent_path() / file).string(); }

std::string ProgramPath() {
  const std::filesystem::path own = OwnPath();
  return (own.parent_path().parent_path() / "lumenar-url-protocol-launch-helper").string() + own.extension().string();
}

}  // namespace support
