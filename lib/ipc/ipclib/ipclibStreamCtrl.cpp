#include "lib/ipc/ipclib/ipclibStreamCtrl.h"

#include <span>
#include <stdexcept>
#include <utility>

#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/operationTrace.h"

namespace quill::ipc {
namespace {

using StreamTrace = OperationTrace<LmIpclibStream>;

}  // namespace

LmIpclibStreamCtrl::LmIpclibStreamCtrl(const platform::GUID& endpoint, StreamFlags flags, std::uint32_t linkValue,
                                       std::weak_ptr<task::TaskExecutor> executor, std::shared_ptr<LmIpclibLink> link)
    : LmIpclibStream(endpoint, u"link-control", flags | LmIpclibStreamFlag::Control, linkValue, 0, std::move(executor),
                     std::move(link)) {
  Trace(TraceChannel::Stream, "- state: {}, streamId: {:#x}", state(), streamId());
}

LmIpcStatusCode LmIpclibStreamCtrl::start() {
  StreamTrace trace(TraceChannel::Stream, *this);
  // The callback runs on behalf of a dispatch, which keeps the stream.
  return trace.ends(accept(
      {}, [this](LmIpcStatusCode status, const std::shared_ptr<LmIpclibMsg>& message) { onRecv(status, message); }));
}

void LmIpclibStreamCtrl::stop() {
  const StreamTrace trace(TraceChannel::Stream, *this);
  shutdown();
}

void LmIpclibStreamCtrl::onRecv(LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>& message) {
  Trace(TraceChannel::Stream, "> state: {}, streamId: {:#x}, msgId: {}, msgType: {}, size: {}", state(), streamId(),
        message->msgId(), message->msgType(), message->size());
  StreamTrace trace(StreamTrace::Begun{}, TraceChannel::Stream, *this);
  if (message->size() == 0) return;
  const auto link = this->link();
  if (!link) return;
  if (message->msgType() != LmIpclibMsgType::Open) {
    trace.ends(LmIpcStatusCode::InvalidParam);
    throw std::logic_error("Control stream received an invalid message");
  }
  if (executor().expired()) {
    trace.ends(LmIpcStatusCode::InvalidState);
    return;
  }
  open(*message, link);
}

void LmIpclibStreamCtrl::open(const LmIpclibMsg& message, const std::shared_ptr<LmIpclibLink>& link) {
  // The payload was looked at when it came in.
  auto name = readOpenPayload({message.data(), message.size()}).value_or(std::u16string());
  const auto stream =
      std::make_shared<LmIpclibStream>(endpoint(), std::move(name), StreamFlags(message.flags()) & kFlagsOnTheWire,
                                       link->linkValue(), message.srcStreamId(), executor(), link);
  const LmIpcStatusCode status = offer(stream, link);
  if (status == LmIpcStatusCode::Success) return;
  const auto refusal = std::make_shared<LmIpclibMsg>(LmIpclibMsgType::OpenAck, 0, status, nullptr, stream->streamId(),
                                                     message.srcStreamId(), 0, nullptr,
                                                     [](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {});
  static_cast<void>(link->send(refusal));
  stream->shutdown();
}

// A link on which nobody listens has nothing of that name.
LmIpcStatusCode LmIpclibStreamCtrl::offer(const std::shared_ptr<LmIpclibStream>& stream,
                                          const std::shared_ptr<LmIpclibLink>& link) {
  LmIpcStatusCode status = link->addStream(stream);
  if (status != LmIpcStatusCode::Success) return status;
  const auto listener = link->getLinkListener();
  status = listener ? listener->connectStream(stream, true) : LmIpcStatusCode::NotFound;
  if (status != LmIpcStatusCode::Success) static_cast<void>(link->eraseStream(stream));
  return status;
}

}  // namespace quill::ipc
