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

bool Failed(const Texts& calls, const std::string& name) { return std::ranges::count(calls, "!" + name) > 0; }

// Whether the last call of that name has failed.
bool LastFailed(const Texts& calls, const std::string& name) {
  const auto last = std::find_if(calls.rbegin(), calls.rend(),
                                 [&](const std::string& call) { return call == name || call == "!" + name; });
  return last != calls.rend() && last->starts_with('!');
}

// The handle of the user's hive stays open each time; a second resident leaves the mutex. The handle of the service's
// process is closed by the last duplication, so when that fails it stays.
Texts PromisedHandles(const Texts& calls, const Promise& promise) {
  Texts handles(static_cast<std::size_t>(std::ranges::count(calls, "RtlOpenCurrentUser")), "CurrentUserHive");
  if (promise.residentIsUp && std::ranges::count(calls, "CreateMutexW") > 0) handles.emplace_back("Mutex");
  if (LastFailed(calls, "DuplicateHandle")) handles.emplace_back("Process");
  return handles;
}

// All but those that stay open or not, as it comes: of a root whose settings cannot be read, each time that the
// browsers' data are written; of a scheme whose registration stays half done; and what a watcher uses that could not be
// told to end, or was not waited for.
Texts JudgedHandles(const Ending& ending, const Promise& promise) {
  Texts handles = ending.liveHandles;
  if (promise.amongOthers && Failed(ending.calls, "NtQueryValueKey")) std::erase(handles, "NativeKey");
  if (Failed(ending.calls, "RegSetValueExW")) std::erase(handles, "RegistryKey");
  if (Failed(ending.calls, "SetEvent") || Failed(ending.calls, "WaitForSingleObject")) {
    std::erase(handles, "Event");
    std::erase(handles, "RegistryKey");
  }
  return handles;
}

// The texts that a promise knows.
std::set<std::string> KnownTexts(const Promise& promise) {
  std::set<std::string> known(promise.log.begin(), promise.log.end());
  for (const auto& [call, texts] : promise.unless) known.insert(texts.begin(), texts.end());
  return known;
}

// A text that cannot be written is lost, whichever it is.
bool WritesTheLog(const std::string& call) {
  const std::set<std::string> calls{"GetTempPathW", "GetUserNameW", "_wfopen", "fputws", "fclose"};
  return calls.contains(call);
}

// Where more than one call fails, any text may be lost, but none is there that the promise does not know.
void CheckLog(const Outcome& outcome, const Promise& promise, Mode mode) {
  Texts log = outcome.log;
  const std::set<std::string> known = KnownTexts(promise);
  if (promise.amongOthers) std::erase_if(log, [&](const std::string& text) { return !known.contains(text); });
  if (mode == Mode::FromThereOn) {
    EXPECT_THAT(log, testing::Each(testing::AnyOfArray(known)));
    return;
  }
  const auto exception = promise.unless.find(KeyOf(outcome.ending));
  const Texts& promised = exception == promise.unless.end() ? promise.log : exception->second;
  if (promise.amongOthers && WritesTheLog(outcome.ending.FirstFailedCall())) {
    EXPECT_THAT(log, testing::IsSubsetOf(promised));
    EXPECT_GE(log.size() + 1, promised.size());
  } else {
    std::stable_partition(log.begin(), log.end(),
                          [&](const std::string& text) { return promise.anywhere.contains(text); });
    EXPECT_EQ(log, promised);
  }
}

}  // namespace

void FaultWalk::CheckEnd(const Outcome& outcome, const Promise& promise) {
  const Ending& ending = outcome.ending;
  EXPECT_FALSE(ending.hung) << "killed";
  EXPECT_EQ(ending.exitCode, 0) << ending.errorOutput;
  EXPECT_THAT(ending.errorOutput, Not(HasSubstr("Sanitizer")));
  EXPECT_THAT(ending.errorOutput, Not(HasSubstr("runtime error")));
  EXPECT_FALSE(ending.calls.empty()) << "the process did not end by itself";
  EXPECT_THAT(JudgedHandles(ending, promise),
              testing::UnorderedElementsAreArray(PromisedHandles(ending.calls, promise)));
}

Fault FaultWalk::FaultAt(unsigned at) {
  const bool fromThereOn = GetParam() == Mode::FromThereOn;
  return {.at = at, .fromThereOn = fromThereOn, .spared = fromThereOn ? "GetMessageW" : ""};
}

std::optional<unsigned> FaultWalk::OnlyCall() {
  const char* const only = std::getenv("LUMENAR_WALK_ONLY");
  return only == nullptr ? std::nullopt : std::optional(static_cast<unsigned>(std::atoi(only)));
}

void FaultWalk::ShowIfWanted(unsigned at, const Outcome& outcome) {
  if (std::getenv("LUMENAR_WALK_SHOW") != nullptr) Show(at, outcome);
}

std::string FaultWalk::Told(unsigned at, const Ending& ending) {
  return "when call " + std::to_string(at) + ", " + KeyOf(ending) + ", fails; to repeat this:\n" + RepeatCommand(at);
}

void FaultWalk::Walk(const FaultMachine& machine, const Promise& promise,
                     const std::function<Outcome(const Fault&)>& run) {
  const auto only = OnlyCall();
  for (unsigned at = only.value_or(1); at < kMostCalls; at += kStep) {
    machine.Restore();
    const Outcome outcome = run(FaultAt(at));
    ShowIfWanted(at, outcome);
    CheckEnd(outcome, promise);
    CheckLog(outcome, promise, GetParam());
    if (HasFailure()) FAIL() << Told(at, outcome.ending);
    if (only || at > outcome.ending.calls.size()) return;
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
