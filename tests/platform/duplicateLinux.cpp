#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/linux/testHooks.h"
#include "platform/raii.h"
#include "tests/platform/handleSupport.h"
#include "tests/platform/programOnDrive.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;
using handles::CloseIn;
using handles::NewEvent;

// As on Windows; Wine 8 closes the handle too, but reports a failure.
TEST(CloseInProcessOnLinux, OfThisProcessSucceeds) {
  UniqueEvent event = NewEvent(false);
  SetLastError(ERROR_MORE_DATA);
  EXPECT_TRUE(CloseIn(GetCurrentProcess(), event.release()));
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
}

class AnotherProcess : public testing::Test {
 protected:
  AnotherProcess() { EXPECT_TRUE(child_); }
  ~AnotherProcess() override { WaitForSingleObject(Get(), INFINITE); }

  [[nodiscard]] ProcessHandle Get() const { return child_.process.get(); }

 private:
  const support::Machine machine_;
  const programs::Started child_ =
      programs::Start(programs::Put(machine_, u"child.exe") + std::u16string(programs::kEndsAtOnce));
};

TEST_F(AnotherProcess, HasHandlesThatNobodyElseCloses) {
  const UniqueEvent event = NewEvent(false);
  EXPECT_FALSE(CloseIn(Get(), event.get()));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(SetEvent(event.get()));
}

TEST_F(AnotherProcess, NeitherGivesNorTakesDuplicates) {
  const UniqueEvent event = NewEvent(false);
  EventHandle target(4);
  EXPECT_FALSE(DuplicateHandle(Get(), event.get(), GetCurrentProcess(), &target, 0, false, DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(target);
  EXPECT_FALSE(DuplicateHandle(GetCurrentProcess(), event.get(), Get(), &target, 0, false, DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(target);
}

TEST(DuplicateOnLinux, IsAHandleOfTheSameKind) {
  const auto before = test::LiveHandles();
  {
    const UniqueEvent event = NewEvent(false);
    UniqueEvent duplicate;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), event.get(), GetCurrentProcess(), duplicate.put(), 0, false,
                                DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(test::LiveHandles().size(), before.size() + 2);
  }
  EXPECT_EQ(test::LiveHandles(), before);
}

TEST(DuplicateOnLinux, FailsOnDemandInEitherForm) {
  const UniqueEvent event = NewEvent(false);
  test::ArmFaults(1, true, ERROR_NOT_ENOUGH_MEMORY);
  EventHandle target(4);
  EXPECT_FALSE(
      DuplicateHandle(GetCurrentProcess(), event.get(), GetCurrentProcess(), &target, 0, false, DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_FALSE(CloseIn(GetCurrentProcess(), event.get()));
  EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
  test::DisarmFaults();
  EXPECT_FALSE(target);
  EXPECT_TRUE(SetEvent(event.get()));
}

}  // namespace
