// Messages in a row. Each is in one row at a time, and holds the next, so that joining takes no memory and cannot fail.
//
// Threading: each row belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "lib/ipc/ipclib/ipclibMsg.h"

namespace quill::ipc {

class MessageQueue {
 public:
  MessageQueue() noexcept = default;
  MessageQueue(MessageQueue&& other) noexcept { swap(other); }
  MessageQueue& operator=(MessageQueue&& other) noexcept {
    MessageQueue taken(std::move(other));
    swap(taken);
    return *this;
  }
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;
  ~MessageQueue() { clear(); }

  [[nodiscard]] bool empty() const noexcept { return first_ == nullptr; }
  [[nodiscard]] const std::shared_ptr<LmIpclibMsg>& front() const noexcept { return first_; }
  [[nodiscard]] std::size_t size() const noexcept {
    std::size_t count = 0;
    for (const LmIpclibMsg* each = first_.get(); each != nullptr; each = each->next_.get()) ++count;
    return count;
  }

  // REQUIRES: the message is in no row.
  void push_back(std::shared_ptr<LmIpclibMsg> message) noexcept {
    LmIpclibMsg* const added = message.get();
    (last_ == nullptr ? first_ : last_->next_) = std::move(message);
    last_ = added;
  }
  // REQUIRES of both: not empty.
  [[nodiscard]] std::shared_ptr<LmIpclibMsg> takeFront() noexcept {
    auto message = std::move(first_);
    first_ = std::move(message->next_);
    if (!first_) last_ = nullptr;
    return message;
  }
  void pop_front() noexcept { static_cast<void>(takeFront()); }

  // Takes over all that the other one has, behind its own.
  void append(MessageQueue& other) noexcept {
    if (other.empty()) return;
    (last_ == nullptr ? first_ : last_->next_) = std::move(other.first_);
    last_ = std::exchange(other.last_, nullptr);
  }
  void swap(MessageQueue& other) noexcept {
    first_.swap(other.first_);
    std::swap(last_, other.last_);
  }
  // One after the other: a long row must not end by a recursion.
  void clear() noexcept {
    while (!empty()) pop_front();
  }

 private:
  std::shared_ptr<LmIpclibMsg> first_;
  LmIpclibMsg* last_ = nullptr;
};

}  // namespace quill::ipc
