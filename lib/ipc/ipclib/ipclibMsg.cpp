#include "lib/ipc/ipclib/ipclibMsg.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

#include "lib/ipc/ipclib/idCounter.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTrace.h"

namespace quill::ipc {
namespace {

std::atomic<std::uint64_t> msgIds = 0;

}  // namespace

LmIpclibMsg::LmIpclibMsg(LmIpclibMsgType type, std::uint32_t flags, LmIpcStatusCode status, std::uint64_t srcStreamId,
                         std::uint64_t destStreamId, std::uint32_t size)
    : LmIpclibMsg(type, flags, status, srcStreamId, destStreamId, size, OnComplete()) {}

LmIpclibMsg::LmIpclibMsg(LmIpclibMsgType type, std::uint32_t flags, LmIpcStatusCode status,
                         std::shared_ptr<LmIpclibStream> stream, std::uint64_t srcStreamId, std::uint64_t destStreamId,
                         std::uint32_t size, const std::byte* data, OnComplete onComplete)
    : msgId_(drawId(msgIds)),
      msgType_(type),
      flags_(flags),
      status_(status),
      stream_(std::move(stream)),
      srcStreamId_(srcStreamId),
      destStreamId_(destStreamId),
      size_(size),
      remaining_(size),
      data_(data),
      onComplete_(std::move(onComplete)),
      ownsData_(false) {
  Trace(TraceChannel::Msg, "- srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}", srcStreamId_, destStreamId_, msgId_);
}

LmIpclibMsg::LmIpclibMsg(LmIpclibMsgType type, std::uint32_t flags, LmIpcStatusCode status, std::uint64_t srcStreamId,
                         std::uint64_t destStreamId, std::uint32_t size, OnComplete onComplete)
    : msgId_(drawId(msgIds)),
      msgType_(type),
      flags_(flags),
      status_(status),
      srcStreamId_(srcStreamId),
      destStreamId_(destStreamId),
      size_(size),
      remaining_(size),
      onComplete_(std::move(onComplete)),
      ownsData_(true) {
  Trace(TraceChannel::Msg, "- srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}", srcStreamId_, destStreamId_, msgId_);
}

LmIpclibMsg::~LmIpclibMsg() {
  Trace(TraceChannel::Msg, "- srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}", srcStreamId_, destStreamId_, msgId_);
}

LmIpcStatusCode LmIpclibMsg::appendData(std::uint32_t size, const std::byte* data) {
  Trace(TraceChannel::Msg, "> srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}", srcStreamId_, destStreamId_, msgId_);
  const LmIpcStatusCode status = append(size, data);
  Trace(TraceChannel::Msg, "< srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}, ", srcStreamId_, destStreamId_,
        msgId_);
  return status;
}

LmIpcStatusCode LmIpclibMsg::append(std::uint32_t size, const std::byte* data) {
  if (!ownsData_) return LmIpcStatusCode::InvalidState;
  if (size > remaining_) return LmIpcStatusCode::BufferTooSmall;
  if (!buffer_) allocate();
  if (size != 0) std::memcpy(buffer_.get() + (size_ - remaining_), data, size);
  remaining_ -= size;
  return LmIpcStatusCode::Success;
}

void LmIpclibMsg::allocate() {
  // A system may have no address for 0 bytes.
  buffer_.reset(static_cast<std::byte*>(std::malloc(std::max<std::size_t>(size_, 1))));
  if (!buffer_) {
    Trace(TraceChannel::Msg, "< srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}, ", srcStreamId_, destStreamId_,
          msgId_);
    throw std::bad_alloc();
  }
  data_ = buffer_.get();
}

void LmIpclibMsg::sendComplete(LmIpcStatusCode status) {
  Trace(TraceChannel::Msg, "> srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}", srcStreamId_, destStreamId_, msgId_);
  const std::shared_ptr<LmIpclibMsg> message = shared_from_this();
  onComplete_(status, message);
  completionStatus_ = status;
  if (stream_) stream_->onSendComplete(message);
  Trace(TraceChannel::Msg, "< srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}, ", srcStreamId_, destStreamId_,
        msgId_);
}

void LmIpclibMsg::prepareSend() noexcept {
  sendQueued_ = 0;
  remaining_ = size_;
}

std::span<const std::byte> LmIpclibMsg::takeRemaining(std::uint32_t limit) noexcept {
  const std::uint32_t taken = std::min(limit, remaining_);
  if (taken == 0) return {};
  const std::byte* const from = data_ + (size_ - remaining_);
  remaining_ -= taken;
  return {from, taken};
}

}  // namespace quill::ipc
