// A thread's messages: those posted to its windows and those that others send to them.
#pragma once

#include <poll.h>

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/windowPacket.h"
#include "platform/linux/windowSocket.h"
#include "platform/linux/windowTable.h"
#include "platform/window.h"

namespace platform {

class MessageQueue {
 public:
  // The calling thread's queue, made at the first call. The thread's windows end with the thread. Throws
  // std::bad_alloc, also when there is no descriptor left.
  [[nodiscard]] static const std::shared_ptr<MessageQueue>& OfThisThread();
  // The same, or null when the thread has none yet.
  [[nodiscard]] static MessageQueue* OfThisThreadIfAny() noexcept;

  explicit MessageQueue(Descriptor wake) noexcept : wake_(std::move(wake)) {}

  // From any thread: puts a message behind the others and wakes the queue's thread.
  void Post(const MSG& message);

  // All below: from the queue's own thread.
  void AddWindow(std::shared_ptr<Window> window);
  // Ends the window, with what was posted and sent to it.
  void RemoveWindow(HWND window) noexcept;
  void RemoveAllWindows() noexcept;
  // Makes Next give WM_QUIT once nothing else is left.
  void Quit(int exitCode) noexcept;

  // Runs the window procedure for what has been sent, then takes the next posted message. Sleeps while there is none.
  [[nodiscard]] MSG Next();
  // Whether a message has come since the thread last looked for one, by any of these. A message that was sent and not
  // served counts each time.
  [[nodiscard]] bool HasNewInput();
  // What becomes readable when one may have come: the queue's own descriptor first.
  void AddDescriptors(std::vector<pollfd>& set) const;
  // Runs the window procedure for what is sent meanwhile, until the descriptor can be read. False when the deadline
  // comes first.
  [[nodiscard]] bool WaitServing(const Descriptor& descriptor, windowSocket::Clock::time_point deadline);

 private:
  struct Connection {
    std::shared_ptr<Window> window;
    Descriptor descriptor;
  };

  bool TakeWake() noexcept;
  std::optional<MSG> TakePosted();
  void TakeConnections();
  // Serves the oldest connection whose message is there. False when there is none.
  bool ServeOne();
  void Serve(const Connection& connection, const windowPacket::Request& request);
  // Sleeps until there may be something to do, or until the descriptor (may be null) can be read, which it then
  // returns, or until the deadline.
  bool Sleep(const Descriptor* descriptor, std::optional<windowSocket::Clock::time_point> deadline);

  const Descriptor wake_;  // An eventfd that is readable when something was posted since the last sleep.
  std::mutex lock_;
  std::deque<MSG> posted_;  // Guarded by lock_.

  std::vector<std::shared_ptr<Window>> windows_;
  std::vector<Connection> connections_;  // Those that have not yet delivered their message; the oldest first.
  std::optional<int> quit_;
};

// Whether the calling thread made the window.
[[nodiscard]] bool IsOfThisThread(const Window& window) noexcept;
// Calls a window procedure. Nothing may leave it by an exception: the system has no place for one.
LRESULT CallProcedure(const Window& window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

}  // namespace platform
