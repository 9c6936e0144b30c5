#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/support/process.h"
// Behind the platform's headers: its macros have names of theirs.
#include <windows.h>

namespace {

CHILD_BODY(KeepsAnEvent) {
  const platform::UniqueEvent event(platform::CreateEventW(nullptr, true, false, nullptr));
  support::Say(std::to_string(event.get().value()));
  static_cast<void>(support::Hear());
  return platform::SetEvent(event.get()) ? 0 : static_cast<int>(platform::GetLastError());
}

TEST(CloseInProcessOnWindows, ClosesAHandleOfAnotherOne) {
  support::Process child = support::StartChild("KeepsAnEvent");
  const platform::EventHandle event(std::stoull(child.Hear()));
  const platform::UniqueProcess process(
      platform::ProcessHandle(reinterpret_cast<std::uintptr_t>(::OpenProcess(PROCESS_DUP_HANDLE, FALSE, child.Id()))));
  ASSERT_TRUE(process);
  // As for this process's own, Wine 8 closes the handle and reports a failure.
  platform::DuplicateHandle(process.get(), event, nullptr, nullptr, 0, false, DUPLICATE_CLOSE_SOURCE);
  child.Say("set it");
  EXPECT_EQ(child.Wait(), 6);
}

}  // namespace
