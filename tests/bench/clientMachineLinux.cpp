#include "tests/bench/clientMachineLinux.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace bench {
namespace {

namespace files = std::filesystem;

files::path BesideTests(const std::string& file) { return files::path(support::Beside("..")) / file; }

void Run(const std::string& program, const std::vector<std::string>& arguments) {
  support::Process process({.program = program, .arguments = arguments, .environment = {}});
  if (process.Wait() == 0) return;
  std::fprintf(stderr, "%s failed: %s\n", program.c_str(), process.ErrorOutput().c_str());
  std::exit(1);
}

void Probe(const std::string& verb) { Run(BesideTests("standInProbe"), {verb}); }

std::string LogFolder() {
  support::Process probe({.program = BesideTests("standInProbe"), .arguments = {"places"}, .environment = {}});
  return probe.Hear();
}

}  // namespace

ClientMachine::ClientMachine() {
  Run(BesideTests("standInRegedit"), {LUMENAR_SAMPLE_POLICY});
  // The settings that the resident helper watches.
  support::CreateKey(support::Hive::User, u"Software\\Corvane\\Lumenar");
  const files::path client = machine_.HostPath(u"C:\\Client\\lumenar-client.exe");
  files::create_directories(client.parent_path());
  files::copy_file(support::Beside("emptyStatic"), client);
  files::create_directories(machine_.HostPath(support::Wide(LogFolder())));
}

void FurnishAgent(const std::string& dataHome) {
  const std::string before = std::getenv("XDG_DATA_HOME");
  support::SetEnvironment("XDG_DATA_HOME", dataHome);
  Run(BesideTests("standInRegedit"), {LUMENAR_SAMPLE_AGENT_POLICY});
  ClientMachine::StopDailyLog();
  support::SetEnvironment("XDG_DATA_HOME", before);
}

Service::Service() : process_({.program = BesideTests("standInService"), .arguments = {}, .environment = {}}) {
  static_cast<void>(process_.Hear());
}

void Service::AwaitCommand() {
  bool came = false;
  for (std::string line = process_.Hear(); !line.starts_with("closed link"); line = process_.Hear()) {
    came = came || line.starts_with("command 2 url ");
    if (line.empty()) break;
  }
  if (came) return;
  std::fprintf(stderr, "the service has not got the command\n");
  std::exit(1);
}

std::string ClientMachine::Program() { return BesideTests("../lumenar-url-protocol-launch-helper"); }

void ClientMachine::StopDailyLog() {
  support::SetNumber(support::Hive::Machine, u"Software\\Corvane\\Lumenar\\URLRedirection", u"DebugLog", 0);
}

Resident::Resident() : process_({.program = ClientMachine::Program(), .arguments = {}, .environment = {}}) {
  Probe("await-resident");
}

Resident::~Resident() {
  Probe("end-resident");
  process_.Wait();
}

}  // namespace bench
