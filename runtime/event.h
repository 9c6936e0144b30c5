// Events, and waiting for several of them.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/raii.h"
#include "runtime/rcPtr.h"

namespace runtime {

// What a wait comes to, besides the index of what was signalled: 0 and up.
inline constexpr std::int32_t kWaitTimedOut = -1;
inline constexpr std::int32_t kWaitError = -2;
inline constexpr std::int32_t kWaitAlert = -3;

// What all copies of one TxEvent share.
class TxEventData : public RCObject {
 public:
  TxEventData(platform::WaitableHandle waitable, bool owns) noexcept : handle(waitable), ownsHandle(owns) {}
  ~TxEventData() override;

  const platform::WaitableHandle handle;
  const bool ownsHandle;
};

// A handle to one event of the system, or to something else that can be waited for; or to nothing. Several threads may
// use the object at a time.
class TxEvent : public RCObject {
 public:
  // No limit to the time.
  static constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

  TxEvent() noexcept = default;
  // Empty when the system has no event left. A name that is neither null nor empty leads every process to the same one.
  TxEvent(bool manualReset, bool initiallySignalled, const char* name = nullptr);
  // `ownsHandle`: the handle is closed with the last copy.
  TxEvent(platform::WaitableHandle handle, bool ownsHandle);
  TxEvent(const TxEvent& other) noexcept : RCObject(), data(other.data) {}
  TxEvent& operator=(const TxEvent& other) {
    data = other.data;
    return *this;
  }

  [[nodiscard]] bool IsValid() const noexcept;
  // False for an empty object, and for a handle that is no event's.
  bool Set() const noexcept;
  bool Reset() const noexcept;
  // 0, kWaitTimedOut or kWaitError.
  std::int32_t Wait(std::uint32_t timeoutMs) const noexcept;

  // Cut to 32 bits, for log lines.
  [[nodiscard]] std::uint32_t GetHandle() const noexcept;

  // The lowest index that is signalled; kWaitTimedOut, kWaitError or kWaitAlert. A null or empty entry keeps its place,
  // and fails the wait. With `messageWait` a message to the thread wakes too, with the index behind the last event; the
  // wait is then not alertable.
  static std::int32_t WaitAny(const std::vector<const TxEvent*>& events, bool waitAll, std::uint32_t timeoutMs,
                              bool messageWait, bool alertable);

 private:
  [[nodiscard]] platform::WaitableHandle Handle() const noexcept;

  RCPtr<TxEventData> data;
};

}  // namespace runtime
