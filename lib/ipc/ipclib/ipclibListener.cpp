#include "lib/ipc/ipclib/ipclibListener.h"

#include <utility>

#include "lib/ipc/ipclib/guidText.h"
#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibTrace.h"

namespace quill::ipc {

std::string_view NameOf(LmIpclibListenerState state) noexcept {
  switch (state) {
    case LmIpclibListenerState::Init: return "Init";
    case LmIpclibListenerState::Starting: return "Starting";
    case LmIpclibListenerState::Listening: return "Listening";
    case LmIpclibListenerState::Accepting: return "Accepting";
    case LmIpclibListenerState::Closing: return "Closing";
    case LmIpclibListenerState::Closed: return "Closed";
    case LmIpclibListenerState::Error: return "Error";
  }
  return "unknown";
}

LmIpclibListener::LmIpclibListener(const platform::GUID& endpoint, State state, LinkListeners linkListeners,
                                   OnClosed onClosed)
    : state_(state), endpoint_(endpoint), onClosed_(std::move(onClosed)), linkListeners_(std::move(linkListeners)) {}

LmIpclibListener::State LmIpclibListener::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

LmIpcStatusCode LmIpclibListener::close() {
  Trace(TraceChannel::Listener, "> state: {}, ep: {}", state(), endpoint_);
  const LmIpcStatusCode status = closeLinkListeners();
  Trace(TraceChannel::Listener, "< state: {}, status: {}", state(), status);
  return status;
}

LmIpcStatusCode LmIpclibListener::closeLinkListeners() {
  std::unique_lock lock(mutex_);
  if (state_ != State::Listening && state_ != State::Accepting) return LmIpcStatusCode::InvalidState;
  LinkListeners left;
  left.swap(linkListeners_);
  state_ = State::Closing;
  lock.unlock();

  LmIpcStatusCode first = LmIpcStatusCode::Success;
  for (const auto& linkListener : left) {
    const LmIpcStatusCode status = linkListener->close();
    if (first == LmIpcStatusCode::Success) first = status;
  }

  lock.lock();
  state_ = first == LmIpcStatusCode::Success ? State::Closed : State::Error;
  lock.unlock();
  onClosed_(*this);
  onClosed_ = nullptr;
  return first;
}

}  // namespace quill::ipc
