// Whether the process comes in a package is asked once in its life, so each case is a process of its own.
#include <gtest/gtest.h>

#include "lib/ipc/ipclib/linkReadyEvent.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/ipc/endpoint.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace quill::ipc;
using ipcTests::kEndpoint;
namespace faults = platform::test;

int ExitCode(LmIpcStatusCode status) { return static_cast<int>(status); }

CHILD_BODY(WaitsInAPackage) {
  faults::ArmFaultsOf("GetPackageFamilyName", platform::ERROR_INSUFFICIENT_BUFFER);
  return ExitCode(waitForLinkListener(kEndpoint, 0, nullptr));
}

CHILD_BODY(WaitsWhereNobodyKnowsPackages) {
  faults::ArmFaultsOf("GetProcAddress", platform::ERROR_PROC_NOT_FOUND);
  return ExitCode(waitForLinkListener(kEndpoint, 0, nullptr));
}

CHILD_BODY(AsksOnce) {
  faults::ArmFaults(0, false, 0);
  static_cast<void>(waitForLinkListener(kEndpoint, 0, nullptr));
  static_cast<void>(waitForLinkListener(kEndpoint, 0, nullptr));
  int asked = 0;
  for (const std::string& call : faults::CountedCalls()) asked += call == "GetPackageFamilyName" ? 1 : 0;
  return asked;
}

class LinkReadyEventOnLinux : public testing::Test {
 protected:
  ~LinkReadyEventOnLinux() override {
    faults::DisarmFaults();
    EXPECT_EQ(faults::LiveHandles(), before_);
  }
  const support::Machine machine;

 private:
  const std::vector<std::string> before_ = faults::LiveHandles();
};

TEST_F(LinkReadyEventOnLinux, InAPackageIsNotThereWithoutAService) {
  EXPECT_EQ(support::StartChild("WaitsInAPackage").Wait(), ExitCode(LmIpcStatusCode::Unexpected));
}

TEST_F(LinkReadyEventOnLinux, InAPackageIsOpenedWhereAServiceHasMadeIt) {
  const platform::UniqueEvent ready = getLinkReadyEvent(kEndpoint, nullptr);
  EXPECT_EQ(support::StartChild("WaitsInAPackage").Wait(), ExitCode(LmIpcStatusCode::TimedOut));
  platform::SetEvent(ready.get());
  EXPECT_EQ(support::StartChild("WaitsInAPackage").Wait(), ExitCode(LmIpcStatusCode::Success));
}

TEST_F(LinkReadyEventOnLinux, IsMadeWhereTheSystemKnowsNoPackages) {
  EXPECT_EQ(support::StartChild("WaitsWhereNobodyKnowsPackages").Wait(), ExitCode(LmIpcStatusCode::TimedOut));
}

TEST_F(LinkReadyEventOnLinux, AsksForThePackageOnceInAProcess) { EXPECT_EQ(support::StartChild("AsksOnce").Wait(), 1); }

TEST_F(LinkReadyEventOnLinux, ThatCannotBeMadeFailsTheWait) {
  for (const char* call : {"CreateEventW", "StringFromGUID2"}) {
    faults::ArmFaultsOf(call, platform::ERROR_ACCESS_DENIED);
    EXPECT_EQ(waitForLinkListener(kEndpoint, 0, nullptr), LmIpcStatusCode::Unexpected) << call;
    faults::DisarmFaults();
  }
}

TEST_F(LinkReadyEventOnLinux, ThatCannotBeWaitedForFailsTheWait) {
  faults::ArmFaultsOf("WaitForSingleObject", platform::ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(waitForLinkListener(kEndpoint, 0, nullptr), LmIpcStatusCode::InvalidParam);
}

}  // namespace
