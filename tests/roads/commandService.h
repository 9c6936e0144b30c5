// The stand-in of the service where the launchers of this session look for it, and what it prints of them.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/session.h"
#include "tests/roads/roadMachine.h"
#include "tests/service/serviceProcess.h"

namespace roads {

class CommandService {
 public:
  // Returns when it listens, or says that it waits for a line to do so.
  explicit CommandService(std::vector<std::string> switches = {})
      : process_(EndpointOfThisSession(), std::move(switches)), firstLine_(process_.Next()) {
    EXPECT_TRUE(firstLine_ == "waiting" || firstLine_.starts_with("ready ")) << firstLine_;
  }

  [[nodiscard]] std::string Next() { return process_.Next(); }
  void Say(const std::string& line) { process_.Say(line); }
  void Kill() { process_.Kill(); }

  // The lines up to the next one that begins so, with it. Without one, the test fails and these are all that are left.
  Texts Until(std::string_view beginning) {
    return UntilOne([&](const std::string& line) { return line.starts_with(beginning); });
  }
  // The lines up to the end of so many links, or calls that were refused.
  Texts UntilEnded(int links) {
    return UntilOne([&](const std::string& line) { return EndsALink(line) && --links == 0; });
  }
  // All that are left, of a service that ends by itself.
  Texts Rest() {
    Texts lines;
    for (std::string line = Next(); !line.empty(); line = Next()) lines.push_back(std::move(line));
    return lines;
  }
  // Lets it end once its links have; all that is left.
  Texts End() {
    Say("end");
    return Rest();
  }
  // The exit code of a service whose output has ended.
  int Wait() { return process_.Wait(); }

 private:
  static platform::GUID EndpointOfThisSession() {
    platform::DWORD session = 0;
    EXPECT_TRUE(platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &session));
    return standIn::CommandEndpoint(session);
  }
  static bool EndsALink(std::string_view line) {
    return line == "refused" || line.starts_with("closed link ") || line.starts_with("failed link ") ||
           line.starts_with("client gone link ") || line.starts_with("error ");
  }
  template <class Predicate>
  Texts UntilOne(const Predicate& isLast) {
    Texts lines;
    do {
      lines.push_back(Next());
      if (lines.back().empty()) {
        ADD_FAILURE() << "the service has ended";
        break;
      }
    } while (!isLast(lines.back()));
    return lines;
  }

  service::ServiceProcess process_;
  const std::string firstLine_;
};

// Those of the lines that begin so.
[[nodiscard]] inline Texts Beginning(Texts lines, std::string_view beginning) {
  std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(beginning); });
  return lines;
}

// The line of a command to open that URL, as this program always makes it.
[[nodiscard]] inline std::string CommandLine(std::u16string_view url) {
  return "command 2 url " + standIn::Escaped(url);
}

}  // namespace roads
