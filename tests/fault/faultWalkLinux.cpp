#include "tests/fault/faultWalkLinux.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <set>

namespace fault {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr unsigned kMostCalls = 2000;

std::string RepeatCommand(unsigned at) {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  return "LUMENAR_WALK_ONLY=" + std::to_string(at) + " LUMENAR_WALK_SHOW=1 " + support::OwnPath() +
         " --gtest_filter=" + test->test_suite_name() + "." + test->name();
}

// The first call that failed: its name and which of that name it was.
std::string KeyOf(const Ending& ending) {
  const std::string name = ending.FirstFailedCall();
  const auto failed = std::ranges::find(ending.calls, "!" + name);
  return name + "#" + std::to_string(1 + std::count(ending.calls.begin(), failed, name));
}

void Show(unsigned at, const Outcome& outcome) {
  std::cout << at << ": " << KeyOf(outcome.ending) << ", exit code " << outcome.ending.exitCode << '\n';
  for (const std::string& text : outcome.log) std::cout << "    " << text << '\n';
  for (const std::string& kind : outcome.ending.liveHandles) std::cout << "    live: " << kind << '\n';
  if (!outcome.ending.errorOutput.empty()) std::cout << outcome.ending.errorOutput << '\n';
}

// The handle of the user's hive stays open each time; a second resident leaves the mutex; an event that nobody could
// set stays with the thread that waits for it.
Texts PromisedHandles(const Texts& calls, bool residentIsUp) {
  Texts handles(static_cast<std::size_t>(std::ranges::count(calls, "RtlOpenCurrentUser")), "CurrentUserHive");
  if (residentIsUp && std::ranges::count(calls, "CreateMutexW") > 0) handles.emplace_back("Mutex");
  if (std::ranges::count(calls, "!SetEvent") > 0) handles.emplace_back("Event");
  return handles;
}

void CheckEnd(const Outcome& outcome, bool residentIsUp) {
  const Ending& ending = outcome.ending;
  EXPECT_FALSE(ending.hung) << "killed";
  EXPECT_EQ(ending.exitCode, 0) << ending.errorOutput;
  EXPECT_THAT(ending.errorOutput, Not(HasSubstr("Sanitizer")));
  EXPECT_THAT(ending.errorOutput, Not(HasSubstr("runtime error")));
  EXPECT_FALSE(ending.calls.empty()) << "the process did not end by itself";
  EXPECT_THAT(ending.liveHandles, testing::UnorderedElementsAreArray(PromisedHandles(ending.calls, residentIsUp)));
}

// Where more than one call fails, a text may be lost that stands in the table, but none is there that does not.
void CheckLog(const Outcome& outcome, const Promise& promise, Mode mode) {
  if (mode == Mode::Once) {
    const auto exception = promise.unless.find(KeyOf(outcome.ending));
    EXPECT_EQ(outcome.log, exception == promise.unless.end() ? promise.log : exception->second);
    return;
  }
  std::set<std::string> known(promise.log.begin(), promise.log.end());
  for (const auto& [call, texts] : promise.unless) known.insert(texts.begin(), texts.end());
  EXPECT_THAT(outcome.log, testing::Each(testing::AnyOfArray(known)));
}

}  // namespace

void FaultWalk::Walk(const FaultMachine& machine, const Promise& promise,
                     const std::function<Outcome(const Fault&)>& run) {
  const char* const only = std::getenv("LUMENAR_WALK_ONLY");
  for (unsigned at = only != nullptr ? static_cast<unsigned>(std::atoi(only)) : 1; at < kMostCalls; ++at) {
    const bool fromThereOn = GetParam() == Mode::FromThereOn;
    const Fault fault{.at = at, .fromThereOn = fromThereOn, .spared = fromThereOn ? "GetMessageW" : ""};
    machine.Restore();
    const Outcome outcome = run(fault);
    if (std::getenv("LUMENAR_WALK_SHOW") != nullptr) Show(at, outcome);
    CheckEnd(outcome, promise.residentIsUp);
    CheckLog(outcome, promise, GetParam());
    if (HasFailure()) {
      FAIL() << "when call " << at << ", " << KeyOf(outcome.ending) << ", fails; to repeat this:\n"
             << RepeatCommand(at);
    }
    if (only != nullptr || at > outcome.ending.calls.size()) return;
  }
  FAIL() << "no end of calls that can fail";
}

std::string AppPath() { return "apppathrd/path=" + std::string(600, 'a'); }

std::string LaunchUrl(const std::string& text) { return "tavrix-prism-url-launch://" + text; }

Texts LaunchTexts() {
  const std::string path(600, 'a');
  return {"CheckAppPathSettings: Url Redirection is enabled.", "Match the rule ^apppathrd/path= successfully.",
          "Redirect the app path: 'apppathrd/path=" + path + "'.",
          "StartRemoteApp: \"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host1/calc?url=apppathrd%2Fpath=" +
              path + "\""};
}

Texts Without(Texts texts, std::size_t place) {
  texts.erase(texts.begin() + static_cast<std::ptrdiff_t>(place));
  return texts;
}

void PrintTo(Mode mode, std::ostream* stream) { *stream << (mode == Mode::Once ? "Once" : "FromThereOn"); }

std::string ModeName(const testing::TestParamInfo<Mode>& mode) { return testing::PrintToString(mode.param); }

}  // namespace fault
