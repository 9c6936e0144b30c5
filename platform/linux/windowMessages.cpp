#include <poll.h>
#include <sched.h>

#include <algorithm>
#include <new>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/messageQueue.h"
#include "platform/linux/waitable.h"
#include "platform/linux/windowPacket.h"
#include "platform/linux/windowSocket.h"
#include "platform/linux/windowTable.h"
#include "platform/window.h"

namespace platform {
namespace {

using windowSocket::Clock;

constexpr DWORD ERROR_MESSAGE_SYNC_ONLY = 1159;

// As long as most answers take. A processor that goes idle meanwhile takes a tenth of a millisecond to wake: once for
// this thread, and once more for a thread of the other side's that was moved there.
constexpr std::chrono::microseconds kAwake{1000};

// Looks for the answer without sleeping, for a moment. On a single processor the other side comes first.
bool AnswersSoon(const Descriptor& connection, Clock::time_point deadline) noexcept {
  const Clock::time_point end = std::min(deadline, Clock::now() + kAwake);
  do {
    if (IsReadable(connection.get())) return true;
    sched_yield();
  } while (Clock::now() < end);
  return false;
}

// Waits for the answer. A thread that has windows goes on serving them, so that two threads may send to each other.
bool WaitForAnswer(const Descriptor& connection, Clock::time_point deadline) {
  if (MessageQueue* queue = MessageQueue::OfThisThreadIfAny()) return queue->WaitServing(connection, deadline);
  if (AnswersSoon(connection, deadline)) return true;
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const auto wait = static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000'000));
    pollfd state{.fd = connection.get(), .events = POLLIN, .revents = 0};
    if (poll(&state, 1, wait) > 0) return true;
    if (Clock::now() >= deadline) return false;
  }
}

bool PostToOther(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto place = windowTable::PlaceOf(window);
  if (!place) return false;
  const Descriptor connection = windowSocket::Connect(*place, Clock::now());
  return connection && windowPacket::Write(connection, windowPacket::Kind::Posted, message, wParam, lParam);
}

}  // namespace

int GetMessageW(MSG* message, std::nullptr_t, UINT, UINT) noexcept try {
  if (FaultInjected("GetMessageW")) return -1;
  *message = MessageQueue::OfThisThread()->Next();
  return message->message == WM_QUIT ? 0 : 1;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return -1;
}

bool TranslateMessage(const MSG*) noexcept { return false; }

LRESULT DispatchMessageW(const MSG* message) noexcept {
  const auto window = windowTable::OwnWindow(message->hwnd);
  if (!window || !IsOfThisThread(*window)) return 0;
  return CallProcedure(*window, message->message, message->wParam, message->lParam);
}

void PostQuitMessage(int exitCode) noexcept try {
  MessageQueue::OfThisThread()->Quit(exitCode);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
}

bool PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept try {
  if (FaultInjected("PostMessageW")) return false;
  if (message == WM_COPYDATA) {
    SetLastError(ERROR_MESSAGE_SYNC_ONLY);
    return false;
  }
  const auto own = windowTable::OwnWindow(window);
  const auto queue = own ? own->queue.lock() : nullptr;
  if (!queue) return PostToOther(window, message, wParam, lParam);
  queue->Post({.hwnd = window, .message = message, .wParam = wParam, .lParam = lParam, .time = 0, .ptX = 0, .ptY = 0});
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

LRESULT SendMessageTimeoutW(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT, UINT milliseconds,
                            std::uintptr_t* result) noexcept try {
  if (FaultInjected("SendMessageTimeoutW")) return 0;
  const auto deadline = Clock::now() + std::chrono::milliseconds(PatienceFor(milliseconds));
  LRESULT answer = 0;
  if (const auto own = windowTable::OwnWindow(window); own && IsOfThisThread(*own)) {
    answer = CallProcedure(*own, message, wParam, lParam);
  } else {
    const auto place = windowTable::PlaceOf(window);
    if (!place) return 0;
    const Descriptor connection = windowSocket::Connect(*place, deadline);
    if (!connection || !windowPacket::Write(connection, windowPacket::Kind::Sent, message, wParam, lParam)) return 0;
    if (!WaitForAnswer(connection, deadline)) {
      SetLastError(ERROR_TIMEOUT);
      return 0;
    }
    const auto received = windowPacket::ReadAnswer(connection);
    if (!received) {
      SetLastError(ERROR_INVALID_WINDOW_HANDLE);  // The window ended with the message.
      return 0;
    }
    answer = *received;
  }
  if (result != nullptr) *result = static_cast<std::uintptr_t>(answer);
  return 1;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

}  // namespace platform
