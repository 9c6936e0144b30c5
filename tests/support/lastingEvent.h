// An event of the system's that waits of its pool can wait for, too.
#pragma once

#include "platform/handles.h"
#include "platform/raii.h"

namespace support {

// Set once, and then it stays.
class LastingEvent {
 public:
  void Set() const { platform::SetEvent(event_.get()); }
  void Await() const { platform::WaitForSingleObject(event_.get(), platform::INFINITE); }
  [[nodiscard]] bool IsSet() const { return platform::WaitForSingleObject(event_.get(), 0) == platform::WAIT_OBJECT_0; }
  [[nodiscard]] platform::EventHandle Handle() const { return event_.get(); }

 private:
  platform::UniqueEvent event_{platform::CreateEventW(nullptr, true, false, nullptr)};
};

}  // namespace support
