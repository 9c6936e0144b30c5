// How a stream takes messages in, delivers them, and sends.
#include <atomic>
#include <mutex>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/operationTrace.h"

namespace quill::ipc {
namespace {

using StreamTrace = OperationTrace<LmIpclibStream>;

// The two traces of an operation on one message.
class MessageTrace {
 public:
  MessageTrace(const LmIpclibStream& stream, const LmIpclibMsg& message, const char* file = __builtin_FILE(),
               unsigned line = __builtin_LINE(), const char* function = __builtin_FUNCTION()) noexcept
      : end_(StreamTrace::Begun{}, TraceChannel::Msg, stream, file, line, function) {
    traceFrom({file, line, function}, TraceChannel::Msg,
              "> state: {}, streamId: {:#x}, msgId: {}, msgType: {}, size: {}", stream.state(), stream.streamId(),
              message.msgId(), message.msgType(), message.size());
  }

 private:
  StreamTrace end_;
};

// The empty message says that a stream has ended, and that is for this side to say.
bool isWellFormed(const LmIpclibMsg& message) {
  if (message.msgType() == LmIpclibMsgType::Msg) return message.size() != 0;
  if (message.msgType() != LmIpclibMsgType::Open) return true;
  return isOpenPayload({message.data(), message.size()});
}

}  // namespace

LmIpcStatusCode LmIpclibStream::recvBlock(const LmIpclibBlockHeader& header, const void* data) {
  Lock lock(mutex_);
  StreamTrace trace(TraceChannel::Msg, *this);
  if (!takesBlocks()) return trace.endsOn(TraceChannel::Stream, LmIpcStatusCode::InvalidState);
  LmIpcStatusCode status = addBlock(header, data);
  if (status == LmIpcStatusCode::Success && (header.flags & kLastBlock) != 0) status = completePartialMsg(lock, header);
  return status == LmIpcStatusCode::Success ? trace.ends(status) : trace.endsOn(TraceChannel::Stream, status);
}

bool LmIpclibStream::takesBlocks() const noexcept {
  return state() == State::Connecting || state() == State::Connected || isClosing(CloseState::LocalClose);
}

LmIpcStatusCode LmIpclibStream::addBlock(const LmIpclibBlockHeader& header, const void* data) {
  const bool first = (header.flags & kFirstBlock) != 0;
  if (first == (partialMsg_ != nullptr)) return LmIpcStatusCode::ProtocolError;
  if (first) {
    if (header.totalSize < header.dataSize) return LmIpcStatusCode::ProtocolError;
    partialMsg_ =
        std::make_shared<LmIpclibMsg>(header.msgType, header.flags, static_cast<LmIpcStatusCode>(header.status),
                                      header.srcStreamId, header.destStreamId, header.totalSize);
  }
  bytesReceivedOnWire_.fetch_add(header.headerSize(), std::memory_order_relaxed);
  if (header.dataSize == 0) return LmIpcStatusCode::Success;

  LmIpcStatusCode added = LmIpcStatusCode::OutOfMemory;
  try {
    added = partialMsg_->appendData(header.dataSize, static_cast<const std::byte*>(data));
  } catch (const std::bad_alloc&) {
    // A message may claim more than the process can have. That is the peer's fault, and ends no more than the link.
  }
  if (added != LmIpcStatusCode::Success) {
    partialMsg_.reset();
    return LmIpcStatusCode::ProtocolError;
  }
  if (header.msgType == LmIpclibMsgType::Msg) bytesReceived_.fetch_add(header.dataSize, std::memory_order_relaxed);
  bytesReceivedOnWire_.fetch_add(header.dataSize, std::memory_order_relaxed);
  return LmIpcStatusCode::Success;
}

LmIpcStatusCode LmIpclibStream::completePartialMsg(Lock& lock, const LmIpclibBlockHeader& header) {
  if (partialMsg_->remaining() != 0) return LmIpcStatusCode::ProtocolError;
  if (header.msgType == LmIpclibMsgType::OpenAck) {
    partialMsg_.reset();
    completeConnectExistingLink(lock, static_cast<LmIpcStatusCode>(header.status), StreamFlags(header.flags),
                                header.srcStreamId, ConnectWait::Acked);
    return LmIpcStatusCode::Success;
  }
  if (!isWellFormed(*partialMsg_)) return LmIpcStatusCode::ProtocolError;
  if (header.msgType == LmIpclibMsgType::Msg) msgsReceived_.fetch_add(1, std::memory_order_relaxed);
  addIncomingMessage(std::exchange(partialMsg_, nullptr));
  return LmIpcStatusCode::Success;
}

void LmIpclibStream::addIncomingMessage(std::shared_ptr<LmIpclibMsg> message) {
  const MessageTrace trace(*this, *message);
  incoming_.push_back(std::move(message));
}

void LmIpclibStream::deferredDispatch() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Msg, *this);
  queueDispatch(lock);
}

void LmIpclibStream::queueDispatch(Lock&) {
  const StreamTrace trace(TraceChannel::Msg, *this);
  if (dispatchEnabled_ == 0 || incoming_.empty() || dispatchState_ != DispatchState::Idle || !dispatchTask_) return;
  dispatchState_ = DispatchState::Queued;
  dispatchTask_->submit(shared_from_this());
}

// A user's mistake ends the link, not the process.
void LmIpclibStream::runDispatch(const std::shared_ptr<LmIpclibStream>& stream) {
  try {
    stream->dispatch();
  } catch (const std::logic_error&) {
    stream->onCallbackFailed();
  }
}

void LmIpclibStream::dispatch() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Msg, *this);
  if (dispatchState_ != DispatchState::Queued) return;
  while (!incoming_.empty()) {
    dispatchState_ = DispatchState::Running;
    Incoming messages;
    messages.swap(incoming_);
    lock.unlock();
    deliver(messages);
    lock.lock();
  }
  dispatchState_ = DispatchState::Idle;
}

void LmIpclibStream::deliver(Incoming& messages) {
  // Behind a callback that throws, the rest goes back to where it was: the end of the stream must still be heard.
  struct Undelivered {
    ~Undelivered() {
      if (messages.empty()) return;
      Lock lock(stream.mutex_);
      stream.incoming_.splice(stream.incoming_.begin(), messages);
    }
    LmIpclibStream& stream;
    Incoming& messages;
  };
  const Undelivered rest{*this, messages};

  while (!messages.empty()) {
    const auto message = std::move(messages.front());
    messages.pop_front();
    // Not before: a message that is never delivered must not keep its stream.
    message->setStream(shared_from_this());
    switch (message->msgType()) {
      case LmIpclibMsgType::Open:
      case LmIpclibMsgType::Msg: onProtoMsg(message); break;
      case LmIpclibMsgType::Close: onProtoClose(); break;
      case LmIpclibMsgType::CloseAck: onProtoCloseAck(); break;
      case LmIpclibMsgType::Shutdown: onProtoShutdown(); break;
      case LmIpclibMsgType::None:
      case LmIpclibMsgType::OpenAck: break;
    }
  }
}

void LmIpclibStream::onProtoMsg(const std::shared_ptr<LmIpclibMsg>& message) {
  const MessageTrace trace(*this, *message);
  // The empty message is the last one, also for a callback that throws.
  struct End {
    ~End() {
      if (message.size() != 0) return;
      Lock lock(stream.mutex_);
      stream.emptyMsgState_ = EmptyMsgState::Delivered;
      stream.shutdownStream(lock);
    }
    LmIpclibStream& stream;
    const LmIpclibMsg& message;
  };
  const End end{*this, *message};

  recvCallback_(LmIpcStatusCode::Success, message);
}

void LmIpclibStream::onProtoClose() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Stream, *this);
  if (state() == State::Connected) {
    setState(State::Closing);
    closeState_ = CloseState::RemoteClose;
    queueEmptyMsg(lock);
  } else if (isClosing(CloseState::LocalClose)) {
    onCloseAnswered(lock);
  }
}

void LmIpclibStream::onProtoCloseAck() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Stream, *this);
  if (isClosing(CloseState::LocalClose)) onCloseAnswered(lock);
}

void LmIpclibStream::onProtoShutdown() {
  const StreamTrace trace(TraceChannel::Stream, *this);
  shutdown();
}

void LmIpclibStream::onCallbackFailed() {
  Lock lock(mutex_);
  Trace(TraceChannel::Stream, "- state: {}, streamId: {:#x}, status: {}", state(), streamId_,
        LmIpcStatusCode::ProtocolError);
  dispatchState_ = DispatchState::Idle;
  queueDispatch(lock);
  const auto link = link_ ? link_ : weakLink_.lock();
  lock.unlock();
  if (link) link->linkError();
}

Expected<std::shared_ptr<LmIpclibMsg>> LmIpclibStream::send(StreamFlags flags, std::uint32_t size, const void* data,
                                                            OnComplete onComplete) {
  StreamTrace trace(TraceChannel::Msg, *this);
  if (data == nullptr || size == 0 || flags != StreamFlags() || !onComplete) {
    return trace.ends(LmIpcStatusCode::InvalidParam);
  }
  Lock lock(mutex_);
  if (state() != State::Connected && !isClosing(CloseState::RemoteClose)) {
    return trace.ends(LmIpcStatusCode::InvalidState);
  }
  auto message =
      std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Msg, flags.bits() | LmIpclibMsg::kCountsAsOutstanding,
                                    LmIpcStatusCode::Success, shared_from_this(), streamId_, remoteStreamId(), size,
                                    static_cast<const std::byte*>(data), std::move(onComplete));
  outstandingSends_.fetch_add(1, std::memory_order_relaxed);
  // Behind the empty message the link is gone.
  const LmIpcStatusCode status = link_ ? link_->send(message) : LmIpcStatusCode::InvalidState;
  if (status != LmIpcStatusCode::Success) {
    lock.unlock();
    decrementOustandingSends();
    return trace.ends(status);
  }
  bytesSent_.fetch_add(size, std::memory_order_relaxed);
  msgsSent_.fetch_add(1, std::memory_order_relaxed);
  return message;
}

void LmIpclibStream::onSendComplete(const std::shared_ptr<LmIpclibMsg>& message) {
  const MessageTrace trace(*this, *message);
  if ((message->flags() & LmIpclibMsg::kCountsAsOutstanding) != 0) decrementOustandingSends();
}

void LmIpclibStream::decrementOustandingSends() {
  Trace(TraceChannel::Msg, "> state: {}, streamId: {:#x}", state(), streamId_);
  const std::uint32_t left = outstandingSends_.fetch_sub(1, std::memory_order_relaxed) - 1;
  if (sendWaiterCount_.load() != 0) {
    const std::lock_guard lock(sendWaitMutex_);
    for (const SendWaiter& waiter : sendWaiters_) {
      if (waiter.threshold >= left) waiter.condition->notify_one();
    }
  }
  Trace(TraceChannel::Msg, "< state: {}, streamId: {:#x}, count: {}", state(), streamId_, left);
}

}  // namespace quill::ipc
