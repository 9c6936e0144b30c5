#include "lib/ipc/ipclib/ipclibStream.h"

#include <cstddef>
#include <span>
#include <utility>

#include "lib/ipc/ipclib/idCounter.h"
#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/linkConnector.h"
#include "lib/ipc/ipclib/operationTrace.h"

namespace quill::ipc {
namespace {

using StreamTrace = OperationTrace<LmIpclibStream>;

constexpr std::uint8_t kStreamTag = 0x53;
constexpr std::chrono::nanoseconds kCloseTimeout{10'000'000'000};

std::atomic<std::uint32_t> streamIds = 0;

// Every message that goes through a link must have a callback.
void nobodyWaits(LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {}

}  // namespace

std::string_view NameOf(LmIpclibStreamState state) noexcept {
  switch (state) {
    case LmIpclibStreamState::Init: return "Init";
    case LmIpclibStreamState::Connecting: return "Connecting";
    case LmIpclibStreamState::Connected: return "Connected";
    case LmIpclibStreamState::Closing: return "Closing";
    case LmIpclibStreamState::Closed: return "Closed";
  }
  return "unknown";
}

LmIpclibStream::LmIpclibStream(const platform::GUID& endpoint, std::u16string streamName, StreamFlags flags,
                               std::weak_ptr<task::TaskExecutor> executor, RecvCallback recvCallback)
    : streamId_(drawTaggedId(kStreamTag, streamIds)),
      endpoint_(endpoint),
      streamName_(std::move(streamName)),
      flags_(flags.bits()),
      remoteStreamId_(0),
      executor_(std::move(executor)),
      recvCallback_(std::move(recvCallback)) {
  Trace(TraceChannel::Stream, "- state: {}, streamId: {:#x}", state(), streamId_);
}

LmIpclibStream::LmIpclibStream(const platform::GUID& endpoint, std::u16string streamName, StreamFlags flags,
                               std::uint32_t linkValue, std::uint64_t remoteStreamId,
                               std::weak_ptr<task::TaskExecutor> executor, std::shared_ptr<LmIpclibLink> link)
    : streamId_(drawTaggedId(kStreamTag, streamIds)),
      endpoint_(endpoint),
      streamName_(std::move(streamName)),
      flags_(flags.bits()),
      linkValue_(linkValue),
      remoteStreamId_(remoteStreamId),
      executor_(std::move(executor)),
      link_(std::move(link)) {
  Trace(TraceChannel::Stream, "- state: {}, streamId: {:#x}", state(), streamId_);
}

LmIpclibStream::~LmIpclibStream() { Trace(TraceChannel::Stream, "- state: {}, streamId: {:#x}", state(), streamId_); }

void LmIpclibStream::setRemote(std::uint32_t linkValue, std::uint64_t remoteStreamId, StreamFlags flags) noexcept {
  linkValue_ = linkValue;
  remoteStreamId_.store(remoteStreamId, std::memory_order_relaxed);
  addFlags(flags & kFlagsOnTheWire);
}

std::shared_ptr<LmIpclibLink> LmIpclibStream::link() const {
  const std::lock_guard lock(mutex_);
  return link_;
}

LmIpcStatusCode LmIpclibStream::connect(StreamFlags flags, const std::shared_ptr<LmIpclibLink>& existingLink,
                                        const std::shared_ptr<LmIpclibLink>& newLink) {
  StreamTrace trace(TraceChannel::Stream, *this);
  const auto executor = executor_.lock();
  if (!executor) return trace.ends(LmIpcStatusCode::InvalidState);
  const auto& link = existingLink ? existingLink : newLink;
  LmIpcStatusCode status = takeLink(link);
  if (status != LmIpcStatusCode::Success) return trace.ends(status);

  status = link->addStream(shared_from_this());
  if (status != LmIpcStatusCode::Success) {
    const std::lock_guard lock(mutex_);
    if (existingLink) {
      connectWait_ = ConnectWait::Finished;
      connectStatus_ = status;
    }
    setState(State::Closed);
    return trace.ends(status);
  }

  status = existingLink ? connectExistingLink(link) : connectNewLink(flags, link, executor);
  if (status == LmIpcStatusCode::Success) status = finishConnect();
  if (status != LmIpcStatusCode::Success && remoteStreamId() != 0) {
    static_cast<void>(link->send(newProtoMsg(LmIpclibMsgType::Shutdown)));
  }
  return trace.ends(status);
}

LmIpcStatusCode LmIpclibStream::takeLink(const std::shared_ptr<LmIpclibLink>& link) {
  const std::lock_guard lock(mutex_);
  if (state() != State::Init) return LmIpcStatusCode::InvalidState;
  if (!link) {
    setState(State::Closed);
    return LmIpcStatusCode::InvalidParam;
  }
  link_ = link;
  setState(State::Connecting);
  return LmIpcStatusCode::Success;
}

LmIpcStatusCode LmIpclibStream::connectExistingLink(const std::shared_ptr<LmIpclibLink>& link) {
  StreamTrace trace(TraceChannel::Stream, *this);
  Lock lock(mutex_);
  if (state() != State::Connecting) return trace.ends(LmIpcStatusCode::StreamClosed);
  const auto open = newOpen();
  handshake_ = std::make_unique<std::condition_variable>();
  connectWait_ = ConnectWait::Pending;
  connectStatus_ = link->send(open);
  if (connectStatus_ != LmIpcStatusCode::Success) {
    connectWait_ = ConnectWait::Finished;
    setState(State::Closed);
    shutdownStream(lock);
  } else {
    handshake_->wait(lock, [this] { return connectWait_ != ConnectWait::Pending; });
  }
  handshake_.reset();
  return trace.ends(connectStatus_);
}

std::shared_ptr<LmIpclibMsg> LmIpclibStream::newOpen() {
  const std::string text = writeOpenPayload(streamName_);
  const auto payload = std::as_bytes(std::span(text));
  auto open = std::make_shared<LmIpclibMsg>(
      LmIpclibMsgType::Open, flags().bits() & kFlagsOnTheWire, LmIpcStatusCode::Success, streamId_, kControlStreamId,
      static_cast<std::uint32_t>(payload.size()),
      [weak = weak_from_this()](LmIpcStatusCode status, const std::shared_ptr<LmIpclibMsg>&) {
        const auto stream = status == LmIpcStatusCode::Success ? nullptr : weak.lock();
        if (!stream) return;
        Lock lock(stream->mutex_);
        stream->completeConnectExistingLink(lock, status, {}, 0, ConnectWait::Finished);
      });
  static_cast<void>(open->appendData(static_cast<std::uint32_t>(payload.size()), payload.data()));
  return open;
}

void LmIpclibStream::completeConnectExistingLink(Lock& lock, LmIpcStatusCode status, StreamFlags peerFlags,
                                                 std::uint64_t peerStreamId, ConnectWait newWait) {
  const StreamTrace trace(TraceChannel::Stream, *this);
  if (connectWait_ != ConnectWait::Pending) return;
  connectStatus_ = status;
  if (status != LmIpcStatusCode::Success) {
    setState(State::Closed);
    shutdownStream(lock);
  } else {
    remoteStreamId_.store(peerStreamId, std::memory_order_relaxed);
    addFlags(peerFlags & kFlagsOnTheWire);
  }
  endConnectWait(newWait);
}

// The wait may have ended while the lock was given up.
void LmIpclibStream::endConnectWait(ConnectWait newWait) {
  if (connectWait_ != ConnectWait::Pending) return;
  connectWait_ = newWait;
  handshake_->notify_all();
}

LmIpcStatusCode LmIpclibStream::connectNewLink(StreamFlags flags, const std::shared_ptr<LmIpclibLink>& link,
                                               const std::shared_ptr<task::TaskExecutor>& executor) {
  StreamTrace trace(TraceChannel::Stream, *this);
  const auto connector = createLinkConnector(flags);
  unsigned errorCode = 0;
  LmIpcStatusCode status =
      connector ? connector->connect(executor, shared_from_this(), link, errorCode) : LmIpcStatusCode::NotFound;
  if (status == LmIpcStatusCode::Success) {
    status = link->start(executor, errorCode);
  } else {
    link->linkError();
  }
  link->notifyConnectWaiters();
  return trace.ends(status);
}

LmIpcStatusCode LmIpclibStream::finishConnect() {
  const std::lock_guard lock(mutex_);
  if (state() != State::Connecting) return LmIpcStatusCode::StreamClosed;
  setState(State::Connected);
  return LmIpcStatusCode::Success;
}

LmIpcStatusCode LmIpclibStream::completeConnect() {
  Lock lock(mutex_);
  StreamTrace trace(TraceChannel::Stream, *this);
  if (state() != State::Connected || dispatchEnabled_ != 0) return trace.ends(LmIpcStatusCode::InvalidState);
  dispatchEnabled_ = 1;
  const LmIpcStatusCode status = connectedInit(lock);
  if (status != LmIpcStatusCode::Success) {
    dispatchEnabled_ = 0;
    setState(State::Closed);
  }
  return trace.ends(status);
}

LmIpcStatusCode LmIpclibStream::accept(StreamFlags flags, RecvCallback recv) {
  Lock lock(mutex_);
  StreamTrace trace(TraceChannel::Stream, *this);
  if (state() != State::Init) return trace.ends(LmIpcStatusCode::InvalidState);
  const LmIpcStatusCode status = connectedInit(lock);
  if (status != LmIpcStatusCode::Success) {
    setState(State::Closed);
    return trace.ends(status);
  }
  if (onAcceptSendOpenAck_ && link_) {
    const auto ack = newProtoMsg(LmIpclibMsgType::OpenAck, this->flags() & kFlagsOnTheWire);
    static_cast<void>(link_->send(ack));
  }
  setState(State::Connected);
  dispatchEnabled_ = 1;
  addFlags(flags);
  recvCallback_ = std::move(recv);
  return trace.ends(LmIpcStatusCode::Success);
}

LmIpcStatusCode LmIpclibStream::connectedInit(Lock& lock) {
  StreamTrace trace(TraceChannel::Stream, *this);
  const auto executor = executor_.lock();
  if (!executor) return trace.ends(LmIpcStatusCode::Unexpected);
  using Argument = std::shared_ptr<LmIpclibStream>;
  dispatchTask_ = std::make_shared<task::WorkTask<void(Argument)>>(
      task::CreateWorkTask<void(Argument)>(*executor, [](const Argument& stream) { runDispatch(stream); }));
  emptyMsgState_ = EmptyMsgState::Expected;
  queueDispatch(lock);
  return trace.ends(LmIpcStatusCode::Success);
}

std::shared_ptr<LmIpclibMsg> LmIpclibStream::newProtoMsg(LmIpclibMsgType type, StreamFlags flags) const {
  return std::make_shared<LmIpclibMsg>(type, flags.bits(), LmIpcStatusCode::Success, nullptr, streamId_,
                                       remoteStreamId(), 0, nullptr, nobodyWaits);
}

LmIpcStatusCode LmIpclibStream::close(std::chrono::milliseconds timeout) {
  Lock lock(mutex_);
  StreamTrace trace(TraceChannel::Stream, *this);
  if (state() == State::Closed) return trace.ends(LmIpcStatusCode::Success);
  if (connectWait_ == ConnectWait::Pending) {
    completeConnectExistingLink(lock, LmIpcStatusCode::StreamClosed, {}, 0, ConnectWait::Finished);
    return trace.ends(LmIpcStatusCode::Success);
  }
  if (isClosing(CloseState::RemoteClose)) {
    // Behind the empty message the link is gone, and with it the way to the peer.
    if (link_) static_cast<void>(link_->send(newProtoMsg(LmIpclibMsgType::CloseAck)));
    setState(State::Closed);
    return trace.ends(LmIpcStatusCode::Success);
  }
  if (state() != State::Connected) return trace.ends(LmIpcStatusCode::InvalidState);

  closeState_ = CloseState::LocalClose;
  setState(State::Closing);
  if (link_->send(newProtoMsg(LmIpclibMsgType::Close)) != LmIpcStatusCode::Success) {
    // The peer will not hear of it, so its answer is made up.
    addIncomingMessage(std::make_shared<LmIpclibMsg>(LmIpclibMsgType::CloseAck, 0, LmIpcStatusCode::Success, nullptr,
                                                     remoteStreamId(), streamId_, 0, nullptr, nobodyWaits));
    queueDispatch(lock);
  } else if (timeout != std::chrono::milliseconds::max()) {
    startCloseTimer(lock, timeout);
  }
  return trace.ends(LmIpcStatusCode::Success);
}

// Every limit is the same one. The caller's only says that there is to be one.
void LmIpclibStream::startCloseTimer(Lock&, std::chrono::milliseconds) {
  const StreamTrace trace(TraceChannel::Stream, *this);
  const auto executor = executor_.lock();
  if (!executor) return;
  closeTimerTask_ = std::make_shared<task::TimerTask>(*executor, [weak = weak_from_this()] {
    if (const auto stream = weak.lock()) stream->onCloseTimerExpired();
  });
  closeTimerTask_->start(kCloseTimeout);
}

void LmIpclibStream::onCloseTimerExpired() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Stream, *this);
  if (!isClosing(CloseState::LocalClose)) return;
  closeState_ = CloseState::TimerExpired;
  closeStream(lock);
}

void LmIpclibStream::onCloseAnswered(Lock& lock) {
  if (closeTimerTask_) closeTimerTask_->cancel();
  closeState_ = CloseState::AckReceived;
  closeStream(lock);
}

void LmIpclibStream::closeStream(Lock& lock) {
  const StreamTrace trace(TraceChannel::Stream, *this);
  const State before = state();
  setState(State::Closed);
  if (before == State::Connecting) {
    shutdownStream(lock);
    if (connectWait_ == ConnectWait::Pending) connectStatus_ = LmIpcStatusCode::StreamClosed;
    endConnectWait(ConnectWait::Finished);
  } else if (dispatchEnabled_ == 0 || executor_.expired()) {
    // Nobody will ever hear the end of it, so nothing is kept for them: each message would keep the stream.
    incoming_.clear();
    shutdownStream(lock);
  } else {
    queueEmptyMsg(lock);
  }
}

void LmIpclibStream::queueEmptyMsg(Lock& lock) {
  const StreamTrace trace(TraceChannel::Stream, *this);
  addIncomingMessage(newProtoMsg(LmIpclibMsgType::Msg));
  emptyMsgState_ = EmptyMsgState::Queued;
  queueDispatch(lock);
}

void LmIpclibStream::shutdown() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Stream, *this);
  if (state() == State::Init) {
    setState(State::Closed);
    shutdownStream(lock);  // One that was offered and never accepted has a link.
  } else if (state() == State::Connecting || state() == State::Connected || isClosing(CloseState::LocalClose)) {
    closeStream(lock);
  }
}

void LmIpclibStream::abandon() {
  Lock lock(mutex_);
  const StreamTrace trace(TraceChannel::Stream, *this);
  setState(State::Closed);
  const Incoming undelivered = std::exchange(incoming_, {});
  shutdownStream(lock);
}

void LmIpclibStream::shutdownStream(Lock& lock) {
  const StreamTrace trace(TraceChannel::Stream, *this);
  auto dispatchTask = std::exchange(dispatchTask_, nullptr);
  auto closeTimerTask = std::exchange(closeTimerTask_, nullptr);
  weakLink_ = link_;
  auto link = std::exchange(link_, nullptr);
  lock.unlock();
  dispatchTask.reset();
  closeTimerTask.reset();
  if (link) static_cast<void>(link->removeStream(shared_from_this()));
  link.reset();
  lock.lock();
}

}  // namespace quill::ipc
