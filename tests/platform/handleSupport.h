// What the tests of handles and of events share.
#pragma once

#include "platform/handles.h"
#include "platform/raii.h"

namespace handles {

inline platform::UniqueEvent NewEvent(bool manualReset, bool signalled = false) {
  return platform::UniqueEvent(platform::CreateEventW(nullptr, manualReset, signalled, nullptr));
}

// Whether the event is signalled: what a wait says that takes no time.
inline platform::DWORD Poll(const platform::UniqueEvent& event) {
  return platform::WaitForSingleObject(event.get(), 0);
}

// Closes a handle by way of the process that it is of.
inline bool CloseIn(platform::ProcessHandle process, platform::KernelHandle handle) {
  return platform::DuplicateHandle(process, handle, nullptr, nullptr, 0, false, platform::DUPLICATE_CLOSE_SOURCE);
}

}  // namespace handles
