#include "lib/ipc/ipclib/ipclibLink.h"

#include <utility>

#include "lib/ipc/ipclib/idCounter.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibStreamCtrl.h"
#include "lib/ipc/ipclib/ipclibTrace.h"

namespace quill::ipc {
namespace {

constexpr std::uint8_t kLinkTag = 0x4C;

std::atomic<std::uint32_t> linkIds = 0;

}  // namespace

std::string_view NameOf(LmIpclibLinkState state) noexcept {
  switch (state) {
    case LmIpclibLinkState::Init: return "Init";
    case LmIpclibLinkState::Connecting: return "Connecting";
    case LmIpclibLinkState::Connected: return "Connected";
    case LmIpclibLinkState::Closing: return "Closing";
    case LmIpclibLinkState::Closed: return "Closed";
    case LmIpclibLinkState::Error: return "Error";
    case LmIpclibLinkState::ShuttingDown: return "ShuttingDown";
  }
  return "unknown";
}

LmIpclibLink::LmIpclibLink(const platform::GUID& endpoint, std::uint32_t flags, Callback stopping, Callback closed)
    : linkId_(drawTaggedId(kLinkTag, linkIds)),
      endpoint_(endpoint),
      flags_(flags),
      onStopping(std::move(stopping)),
      onClosed_(std::move(closed)) {
  Trace(TraceChannel::Link, "- m_state: {}, linkId: {:#x}", state(), linkId_);
}

// The tasks go first: their callbacks may still be looking whether there is a link.
LmIpclibLink::~LmIpclibLink() {
  deferredSendTask_.reset();
  recvWait.reset();
}

LmIpcStatusCode LmIpclibLink::connecting() {
  const Lock lock(m_lock);
  LinkTrace trace(TraceChannel::Link, *this);
  if (state() != State::Init) return trace.ends(LmIpcStatusCode::InvalidState);
  setState(State::Connecting);
  return trace.ends(LmIpcStatusCode::Success);
}

LmIpcStatusCode LmIpclibLink::connectWait() {
  Lock lock(m_lock);
  LinkTrace trace(TraceChannel::Link, *this);
  connectCondition_.wait(lock, [this] { return state() >= State::Connected; });
  return trace.ends(state() == State::Connected ? LmIpcStatusCode::Success : LmIpcStatusCode::InvalidState);
}

void LmIpclibLink::notifyConnectWaiters() {
  const Lock lock(m_lock);
  const LinkTrace trace(TraceChannel::Link, *this);
  connectCondition_.notify_all();
}

LmIpcStatusCode LmIpclibLink::start(const std::shared_ptr<task::TaskExecutor>& executor, unsigned&) {
  LinkTrace trace(TraceChannel::Link, *this);
  if (state() != State::Connecting) return trace.ends(LmIpcStatusCode::InvalidState);
  const LmIpcStatusCode status = startControlStream(executor);
  if (status != LmIpcStatusCode::Success) return trace.ends(status);

  using Weak = std::weak_ptr<LmIpclibLink>;
  deferredSendTask_ = std::make_shared<task::WorkTask<void(Weak)>>(
      task::CreateWorkTask<void(Weak)>(*executor, [](const Weak& weak) { runDeferredSend(weak); }));
  recvWait = std::make_shared<task::WaitTask>(*executor, getRecvEvent(), [weak = weak_from_this()] { runRecv(weak); });
  return trace.ends(LmIpcStatusCode::Success);
}

LmIpcStatusCode LmIpclibLink::startControlStream(const std::shared_ptr<task::TaskExecutor>& executor) {
  controlStream =
      std::make_shared<LmIpclibStreamCtrl>(endpoint_, StreamFlags(), linkValue_, executor, shared_from_this());
  const LmIpcStatusCode status = controlStream->start();
  if (status == LmIpcStatusCode::Success) controlStreamId_ = controlStream->streamId();
  return status;
}

void LmIpclibLink::runDeferredSend(const std::weak_ptr<LmIpclibLink>& weak) {
  const auto link = weak.lock();
  if (!link) return;
  Lock lock(link->m_lock);
  static_cast<void>(link->performDeferredSend(lock));
}

void LmIpclibLink::runRecv(const std::weak_ptr<LmIpclibLink>& weak) {
  const auto link = weak.lock();
  if (!link) return;
  StreamTable streamTable;
  if (link->recv(streamTable) != LmIpcStatusCode::Success) return;
  for (const auto& [id, stream] : streamTable) stream->deferredDispatch();
}

LmIpcStatusCode LmIpclibLink::send(const std::shared_ptr<LmIpclibMsg>& message) {
  Lock lock(m_lock);
  Trace(TraceChannel::Link, "> m_state: {}, linkId: {:#x}, msgId: {}", state(), linkId_, message->msgId());
  LinkTrace trace(LinkTrace::Begun{}, TraceChannel::Link, *this);
  if (state() != State::Connecting && state() != State::Connected) return trace.ends(LmIpcStatusCode::InvalidState);
  message->prepareSend();
  deferredSends.push_back(message);
  if (sendState == SendState::Idle) queueDeferredSend(lock);
  return trace.ends(LmIpcStatusCode::Success);
}

void LmIpclibLink::queueDeferredSend(Lock& lock) {
  const LinkTrace trace(TraceChannel::Link, *this);
  sendState = SendState::Queued;
  lock.unlock();
  if (deferredSendTask_) deferredSendTask_->submit(weak_from_this());
}

LmIpcStatusCode LmIpclibLink::addStream(const std::shared_ptr<LmIpclibStream>& stream) {
  const Lock lock(m_lock);
  Trace(TraceChannel::Link, "> m_state: {}, linkId: {:#x}, streamId: {:#x}", state(), linkId_, stream->streamId());
  LinkTrace trace(LinkTrace::Begun{}, TraceChannel::Link, *this);
  if (state() >= State::Closing) return trace.ends(LmIpcStatusCode::InvalidState);
  const bool added = streams.try_emplace(stream->streamId(), stream).second;
  return trace.ends(added ? LmIpcStatusCode::Success : LmIpcStatusCode::AlreadyExists);
}

LmIpcStatusCode LmIpclibLink::removeStream(const std::shared_ptr<LmIpclibStream>& stream) {
  Trace(TraceChannel::Link, "> m_state: {}, linkId: {:#x}, streamId: {:#x}", state(), linkId_, stream->streamId());
  LinkTrace trace(LinkTrace::Begun{}, TraceChannel::Link, *this);
  if (stream->flags().has(LmIpclibStreamFlag::Control)) return trace.ends(LmIpcStatusCode::NotFound);
  Lock lock(m_lock);
  if (streams.erase(stream->streamId()) == 0) return trace.ends(LmIpcStatusCode::NotFound);
  shutdownLinkWithCheck(lock);
  return trace.ends(LmIpcStatusCode::Success);
}

LmIpcStatusCode LmIpclibLink::eraseStream(const std::shared_ptr<LmIpclibStream>& stream) {
  Lock lock(m_lock);
  Trace(TraceChannel::Link, "> m_state: {}, linkId: {:#x}, streamId: {:#x}", state(), linkId_, stream->streamId());
  LinkTrace trace(LinkTrace::Begun{}, TraceChannel::Link, *this);
  if (streams.erase(stream->streamId()) == 0) return trace.ends(LmIpcStatusCode::NotFound);
  // A link that has begun to end meanwhile counts on the stream to leave: nobody else would come to the check.
  if (state() >= State::Closing) shutdownLinkWithCheck(lock);
  return trace.ends(LmIpcStatusCode::Success);
}

bool LmIpclibLink::shutdownLinkWithCheck(Lock& lock) {
  const bool ended = endWhenDone(lock);
  Trace(TraceChannel::Link, "m_state: {}, linkId: {:#x}, success: {}", state(), linkId_, ended);
  return ended;
}

bool LmIpclibLink::endWhenDone(Lock& lock) {
  if (!streams.empty()) return false;
  if (state() == State::Connected) {
    stop(lock);  // Comes back to the check, in Closing.
    return false;
  }
  const bool inOrder = state() == State::Closing;
  if (!inOrder && state() != State::ShuttingDown) return false;
  // Whoever sends comes to the check again.
  if (!deferredSends.empty() || sendState == SendState::Sending) return false;
  setState(State::Closed);
  linkStop(lock);
  lock.unlock();
  if (inOrder) stopWorkers();
  onClosed_(*this);
  return true;
}

std::shared_ptr<LmIpclibLinkListener> LmIpclibLink::getLinkListener() const {
  const Lock lock(m_lock);
  const LinkTrace trace(TraceChannel::Link, *this);
  return linkListener.lock();
}

void LmIpclibLink::close() {
  Lock lock(m_lock);
  const LinkTrace trace(TraceChannel::Link, *this);
  stop(lock);
}

void LmIpclibLink::shutdown() {
  const LinkTrace trace(TraceChannel::Link, *this);
  linkError();
}

void LmIpclibLink::abandon() {
  Lock lock(m_lock);
  const LinkTrace trace(TraceChannel::Link, *this);
  const auto left = streams;
  lock.unlock();
  for (const auto& [id, stream] : left) stream->abandon();
}

}  // namespace quill::ipc
