// Resident helpers of an agent whose calls fail, from their start, over a URL that they are handed to post, to their
// end. The service does not fail, nor does this process, which hands them the URL.
//
// Some failures make a helper wait twice ten seconds for its link, and there is one helper on a machine. So a walk is
// done in parts side by side: this program again, each time with a machine of its own and with every sixteenth call.
#include <cstdlib>
#include <string>
#include <vector>

#include "launcher/handOff.h"
#include "platform/window.h"
#include "tests/fault/faultWalkLinux.h"
#include "tests/fault/liveServiceLinux.h"

namespace fault {
namespace {

constexpr unsigned kParts = 16;
constexpr const char* kPart = "LUMENAR_WALK_PART";

// Waits until the helper has done it, or has ended.
void HandToHelper(std::u16string url) {
  const platform::HWND window = platform::FindWindowW(handOff::kHelperWindowClass, nullptr);
  platform::COPYDATASTRUCT data{.dwData = handOff::HELPER_LAUNCH_OR_POST,
                                .cbData = static_cast<platform::DWORD>((url.size() + 1) * sizeof(char16_t)),
                                .lpData = url.data()};
  platform::SendMessageTimeoutW(window, platform::WM_COPYDATA, 0, reinterpret_cast<platform::LPARAM>(&data),
                                platform::SMTO_ABORTIFHUNG, kBoundMilliseconds, nullptr);
}

std::string OwnName() {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test->test_suite_name()) + "." + test->name();
}

support::Process StartPart(unsigned part) {
  return support::Process({.program = support::OwnPath(),
                           .arguments = {"--gtest_brief=1", "--gtest_filter=" + OwnName()},
                           .environment = {{kPart, std::to_string(part)}}});
}

void WalkInParts() {
  std::vector<support::Process> parts;
  for (unsigned part = 0; part < kParts; ++part) parts.push_back(StartPart(part));
  for (support::Process& part : parts) {
    const std::string told = part.RestOfOutput();
    EXPECT_EQ(part.Wait(), 0) << told << part.ErrorOutput();
  }
}

class ResidentPost : public FaultWalk {
 protected:
  static Outcome Live(const FaultMachine& machine, unsigned at) {
    FaultedProcess process({}, FaultAt(at), machine.ReportPath("faulted"));
    if (process.AwaitServing()) {
      HandToHelper(support::Wide(UrlOf(at)));
      EndResident();
    }
    return {.ending = process.AwaitEnd(), .log = {}};
  }

  // Every `step`th call from the first on, until nothing has failed.
  static void WalkCalls(unsigned first, unsigned step) {
    const FaultMachine machine(u"Agent");
    LiveService service;
    std::string flawless;
    for (unsigned at = first; flawless.empty(); at += step) {
      machine.Restore();
      const Outcome outcome = Live(machine, at);
      ShowIfWanted(at, outcome);
      CheckEnd(outcome, {.log = {}, .unless = {}, .amongOthers = true});
      EXPECT_TRUE(MutexIsFree());
      if (HasFailure()) FAIL() << Told(at, outcome.ending);
      if (outcome.ending.FirstFailedCall().empty()) flawless = UrlOf(at);
      if (OnlyCall()) break;
    }
    const auto posted = service.End();
    for (const auto& [url, times] : posted) EXPECT_EQ(times, 1) << url;
    EXPECT_TRUE(flawless.empty() || posted.contains(flawless));
  }

 private:
  static std::string UrlOf(unsigned at) { return "fault:posted-" + std::to_string(at); }
};

TEST_P(ResidentPost, OfAUrl) {
  const char* const part = std::getenv(kPart);
  if (const auto only = OnlyCall()) {
    WalkCalls(*only, 1);
  } else if (part != nullptr) {
    WalkCalls(1 + kStep * static_cast<unsigned>(std::atoi(part)), kStep * kParts);
  } else {
    WalkInParts();
  }
}

INSTANTIATE_TEST_SUITE_P(Calls, ResidentPost, testing::Values(Mode::Once, Mode::FromThereOn), ModeName);

}  // namespace
}  // namespace fault
