#include "lib/ipc/ipclib/ipclibLinkListener.h"

#include "lib/ipc/ipclib/guidText.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTrace.h"

namespace quill::ipc {

LmIpcStatusCode LmIpclibLinkListener::connectStream(const std::shared_ptr<LmIpclibStream>& stream,
                                                    bool onAcceptSendOpenAck) const {
  Trace(TraceChannel::Listener, "> ep: {}, streamId: {:#x}, onAcceptSendOpenAck: {}", endpoint_, stream->streamId(),
        onAcceptSendOpenAck);
  stream->setOnAcceptSendOpenAck(onAcceptSendOpenAck);
  const LmIpcStatusCode status = onStream_(stream);
  Trace(TraceChannel::Listener, "< status: {}", status);
  return status;
}

}  // namespace quill::ipc
