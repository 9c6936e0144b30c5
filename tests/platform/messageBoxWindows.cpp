#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

::HWND FindBox() { return ::FindWindowW(L"#32770", L"--url"); }

}  // namespace

TEST(MessageBox, StaysUntilItIsClosed) {
  const support::Machine machine;
  support::Process child = support::StartChild("ShowsAMessage");
  ASSERT_EQ(child.Hear(), "showing");
  const ::HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, child.Id());
  ASSERT_NE(process, nullptr);
  // Nothing tells when the box is there; the look is repeated as long as the process lives, 60 seconds at most.
  ::HWND box = FindBox();
  for (int look = 0; box == nullptr && look < 1200; ++look) {
    ASSERT_EQ(::WaitForSingleObject(process, 50), static_cast<::DWORD>(WAIT_TIMEOUT));
    box = FindBox();
  }
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(::WaitForSingleObject(process, 0), static_cast<::DWORD>(WAIT_TIMEOUT));
  ::PostMessageW(box, WM_COMMAND, IDOK, 0);
  EXPECT_EQ(child.Wait(), IDOK);
  ::CloseHandle(process);
}
