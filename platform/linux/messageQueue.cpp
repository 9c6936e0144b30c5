#include "platform/linux/messageQueue.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/linux/deadline.h"

namespace platform {
namespace {

using windowSocket::Clock;

// Peers that connect and say nothing are dropped, the oldest first, once there are that many.
constexpr std::size_t kMostConnections = 64;

// Holds a thread's queue, and ends its windows with the thread.
struct ThreadsQueue {
  std::shared_ptr<MessageQueue> queue;
  ThreadsQueue() = default;
  ThreadsQueue(const ThreadsQueue&) = delete;
  ThreadsQueue& operator=(const ThreadsQueue&) = delete;
  ~ThreadsQueue() {
    if (queue) queue->RemoveAllWindows();
  }
};
thread_local ThreadsQueue threadsQueue;

MSG MessageOf(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
  return {.hwnd = window,
          .message = message,
          .wParam = wParam,
          .lParam = lParam,
          .time = GetTickCount(),
          .ptX = 0,
          .ptY = 0};
}

}  // namespace

const std::shared_ptr<MessageQueue>& MessageQueue::OfThisThread() {
  if (!threadsQueue.queue) {
    Descriptor wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!wake) throw std::bad_alloc();
    threadsQueue.queue = std::make_shared<MessageQueue>(std::move(wake));
  }
  return threadsQueue.queue;
}

MessageQueue* MessageQueue::OfThisThreadIfAny() noexcept { return threadsQueue.queue.get(); }

void MessageQueue::Post(const MSG& message) {
  {
    const std::lock_guard lock(lock_);
    posted_.push_back(message);
    posted_.back().time = GetTickCount();
  }
  eventfd_write(wake_.get(), 1);
}

void MessageQueue::Quit(int exitCode) noexcept {
  quit_ = exitCode;
  eventfd_write(wake_.get(), 1);
}

void MessageQueue::AddWindow(std::shared_ptr<Window> window) { windows_.push_back(std::move(window)); }

void MessageQueue::RemoveWindow(HWND window) noexcept {
  const auto found = std::ranges::find(windows_, window, [](const auto& own) { return own->handle; });
  if (found == windows_.end()) return;
  const std::shared_ptr<Window> removed = *found;
  windows_.erase(found);
  windowTable::Remove(window);
  windowSocket::Remove(removed->place);
  removed->listener = Descriptor();
  std::erase_if(connections_, [&](const Connection& connection) { return connection.window == removed; });
  const std::lock_guard lock(lock_);
  std::erase_if(posted_, [&](const MSG& message) { return message.hwnd == window; });
}

void MessageQueue::RemoveAllWindows() noexcept {
  while (!windows_.empty()) RemoveWindow(windows_.back()->handle);
}

MSG MessageQueue::Next() {
  while (true) {
    while (ServeOne()) {
    }
    if (const auto posted = TakePosted()) return *posted;
    if (quit_) return MessageOf({}, WM_QUIT, static_cast<WPARAM>(*std::exchange(quit_, std::nullopt)), 0);
    Sleep(nullptr, std::nullopt);
  }
}

// True when something was posted since the last call.
bool MessageQueue::TakeWake() noexcept {
  eventfd_t posts = 0;
  return eventfd_read(wake_.get(), &posts) == 0;
}

bool MessageQueue::HasNewInput() {
  if (TakeWake()) {
    const std::lock_guard lock(lock_);
    if (!posted_.empty() || quit_) return true;
  }
  std::vector<pollfd> set;
  AddDescriptors(set);
  return poll(set.data() + 1, set.size() - 1, 0) > 0;
}

void MessageQueue::AddDescriptors(std::vector<pollfd>& set) const {
  set.push_back({.fd = wake_.get(), .events = POLLIN, .revents = 0});
  for (const auto& window : windows_) set.push_back({.fd = window->listener.get(), .events = POLLIN, .revents = 0});
  for (const auto& waiting : connections_) {
    set.push_back({.fd = waiting.descriptor.get(), .events = POLLIN, .revents = 0});
  }
}

bool MessageQueue::WaitServing(const Descriptor& descriptor, Clock::time_point deadline) {
  while (true) {
    if (Sleep(&descriptor, deadline)) return true;
    if (Clock::now() >= deadline) return false;
    while (ServeOne()) {
    }
  }
}

std::optional<MSG> MessageQueue::TakePosted() {
  const std::lock_guard lock(lock_);
  if (posted_.empty()) return std::nullopt;
  const MSG message = posted_.front();
  posted_.pop_front();
  return message;
}

void MessageQueue::TakeConnections() {
  for (const auto& window : windows_) {
    while (connections_.size() < kMostConnections) {
      // Room first: a connection that was accepted is not lost for want of memory.
      connections_.reserve(connections_.size() + 1);
      Descriptor accepted = windowSocket::Accept(window->listener);
      if (!accepted) break;
      connections_.push_back({.window = window, .descriptor = std::move(accepted)});
    }
  }
}

// Who posts one message after the other makes one connection after the other, each with its message inside before the
// next is made. So the order is kept when all are accepted before the first is read, from the oldest on.
bool MessageQueue::ServeOne() {
  TakeConnections();
  for (std::size_t i = 0; i < connections_.size();) {
    windowPacket::Request request;
    const auto arrival = windowPacket::Read(connections_[i].descriptor, request);
    if (arrival == windowPacket::Arrival::NotYet) {
      ++i;
      continue;
    }
    const Connection connection = std::move(connections_[i]);
    connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(i));
    if (arrival == windowPacket::Arrival::Whole) {
      Serve(connection, request);
      return true;
    }
  }
  if (connections_.size() >= kMostConnections) connections_.erase(connections_.begin());
  return false;
}

void MessageQueue::Serve(const Connection& connection, const windowPacket::Request& request) {
  if (request.kind == windowPacket::Kind::Posted) {
    Post(MessageOf(connection.window->handle, request.message, request.wParam, request.lParam));
    return;
  }
  // The sender has given up, and reported so: the message must not arrive any more.
  if (windowSocket::HasHungUp(connection.descriptor)) return;
  COPYDATASTRUCT data{
      .dwData = static_cast<std::uintptr_t>(request.lParam), .cbData = request.size, .lpData = request.data.get()};
  const LPARAM lParam = request.message == WM_COPYDATA ? reinterpret_cast<LPARAM>(&data) : request.lParam;
  windowPacket::WriteAnswer(connection.descriptor,
                            CallProcedure(*connection.window, request.message, request.wParam, lParam));
}

bool MessageQueue::Sleep(const Descriptor* descriptor, std::optional<Clock::time_point> deadline) {
  std::vector<pollfd> set{{.fd = descriptor != nullptr ? descriptor->get() : -1, .events = POLLIN, .revents = 0}};
  AddDescriptors(set);
  const timespec time = deadline ? TimespecOf(*deadline - Clock::now()) : timespec{};
  if (ppoll(set.data(), set.size(), deadline ? &time : nullptr, nullptr) <= 0) return false;
  if (set[1].revents != 0) TakeWake();
  return set[0].revents != 0;
}

bool IsOfThisThread(const Window& window) noexcept {
  const MessageQueue* queue = MessageQueue::OfThisThreadIfAny();
  return queue != nullptr && window.queue.lock().get() == queue;
}

LRESULT CallProcedure(const Window& window, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
  return window.procedure(window.handle, message, wParam, lParam);
}

}  // namespace platform
