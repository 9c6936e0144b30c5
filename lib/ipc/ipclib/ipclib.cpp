#include "lib/ipc/ipclib/ipclib.h"

#include <cstring>
#include <utility>

#include "lib/ipc/ipclib/createLink.h"
#include "lib/ipc/ipclib/guidText.h"
#include "lib/ipc/ipclib/ipclibTaskWin.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/linkReadyEvent.h"
#include "lib/ipc/ipclib/wideText.h"

namespace quill::ipc {
namespace {

using Flag = LmIpclibStreamFlag;

constexpr std::uint32_t kUnsupportedMode = 0x04;
constexpr std::uint32_t kUnsupportedWay = 0x10;
constexpr std::uint32_t kLinkFlags = 0x13F;  // Those of a stream's flags that become its link's.
constexpr std::uint32_t kMadeByConnect = static_cast<std::uint32_t>(Flag::Control);

LmIpcStatusCode checkFlags(StreamFlags flags) {
  const bool unsupportedWay = (flags.bits() & kUnsupportedWay) != 0;
  const bool unsupportedMode = (flags.bits() & kUnsupportedMode) != 0;
  const bool shareable = flags.has(Flag::Shareable);
  const bool exclusive = flags.has(Flag::Exclusive);
  if (!flags.has(Flag::ByConnector) && !unsupportedWay) return LmIpcStatusCode::InvalidParam;
  if (!unsupportedWay && !shareable && !exclusive && !unsupportedMode) return LmIpcStatusCode::InvalidParam;
  if (unsupportedWay || unsupportedMode) return LmIpcStatusCode::NotImplemented;
  if (shareable && exclusive) return LmIpcStatusCode::InvalidParam;
  return LmIpcStatusCode::Success;
}

// Connects the stream. The link of its own that it may bring is of no use to anybody when that fails.
LmIpcStatusCode connectOn(LmIpclibStream& stream, StreamFlags flags, const std::shared_ptr<LmIpclibLink>& existing,
                          const std::shared_ptr<LmIpclibLink>& made) {
  // Not when the link was made, under the library's lock, which comes behind the link's. Those who found the link since
  // then wait all the same: it is not connected.
  LmIpcStatusCode status = made ? made->connecting() : LmIpcStatusCode::Success;
  if (status == LmIpcStatusCode::Success) status = stream.connect(flags, existing, made);
  // Nobody may go on waiting for a link that was shut down before the stream could begin.
  if (status != LmIpcStatusCode::Success && made) made->notifyConnectWaiters();
  return status;
}

}  // namespace

bool LmIpclib::ByBytes::operator()(const platform::GUID& left, const platform::GUID& right) const noexcept {
  return std::memcmp(&left, &right, sizeof left) < 0;
}

LmIpclib::~LmIpclib() {
  for (const auto& link : linkList()) {
    link->shutdown();
    link->abandon();
  }
}

LmIpcStatusCode LmIpclib::init(std::uint32_t options) {
  Trace(TraceChannel::Lib, "> state: {}", state());
  const Lock lock(mutex);
  LmIpcStatusCode status = LmIpcStatusCode::InvalidState;
  if (state() == State::Init) {
    task_ = std::make_unique<LmIpclibTaskWin>();
    status = task_->init();
  }
  if (status == LmIpcStatusCode::Success) {
    state_ = State::Started;
    initOptions_ = options;
  }
  Trace(TraceChannel::Lib, "< state: {}, status: {}", state(), status);
  return status;
}

Expected<LmIpclib::Stream> LmIpclib::connect(const platform::GUID& endpoint, const std::u16string& streamName,
                                             StreamFlags flags, const RecvCallback& recvCallback,
                                             platform::DWORD timeoutMs, platform::EventHandle abortEvent) {
  Trace(TraceChannel::Lib, "> state: {}, ep: {}, streamName: {}", state(), endpoint, WideText{streamName});
  auto connected = connectStream(endpoint, streamName, flags, recvCallback, timeoutMs, abortEvent);
  Trace(TraceChannel::Lib, "< state: {}, status: {}", state(), connected.status());
  return connected;
}

Expected<LmIpclib::Stream> LmIpclib::connectStream(const platform::GUID& endpoint, const std::u16string& streamName,
                                                   StreamFlags flags, const RecvCallback& recvCallback,
                                                   platform::DWORD timeoutMs, platform::EventHandle abortEvent) {
  const LmIpcStatusCode flagsStatus = checkFlags(flags);
  if (flagsStatus != LmIpcStatusCode::Success) return flagsStatus;
  const auto executor = this->executor();
  if (!executor) return LmIpcStatusCode::InvalidState;
  // A service that does not say that it is ready is asked all the same.
  if (waitForLinkListener(endpoint, timeoutMs, abortEvent) == LmIpcStatusCode::Abort) return LmIpcStatusCode::Abort;

  for (;;) {
    const auto link = chooseLink(endpoint, flags);
    if (!link) return link.status();
    const auto& [existing, made] = *link;
    const auto stream = std::make_shared<LmIpclibStream>(endpoint, streamName, flags, executor, recvCallback);
    const LmIpcStatusCode status = connectOn(*stream, flags, existing, made);
    if (status == LmIpcStatusCode::Success) return stream;
    if (made || stream->state() == LmIpclibStream::State::Closing) return status;
    // The link may have ended just now. That this goes on for as long as a peer refuses streams on a link that lives,
    // is meant.
  }
}

std::shared_ptr<task::TaskExecutor> LmIpclib::executor() const {
  const Lock lock(mutex);
  return task_ ? task_->executor() : nullptr;
}

Expected<LmIpclib::LinkChoice> LmIpclib::chooseLink(const platform::GUID& endpoint, StreamFlags flags) {
  for (;;) {
    Lock lock(mutex);
    if (state() != State::Started) return LmIpcStatusCode::InvalidState;
    auto shared = findSharedLink(endpoint, flags);
    if (!shared) {
      auto made = addLink(endpoint, flags);
      if (!made) return LmIpcStatusCode::NotImplemented;
      return LinkChoice{.existing = nullptr, .made = std::move(made)};
    }
    lock.unlock();
    // Somebody else may be connecting it just now.
    if (shared->connectWait() == LmIpcStatusCode::Success) {
      return LinkChoice{.existing = std::move(shared), .made = nullptr};
    }
  }
}

std::shared_ptr<LmIpclibLink> LmIpclib::findSharedLink(const platform::GUID& endpoint, StreamFlags flags) const {
  if (!flags.has(Flag::Shareable)) return nullptr;
  const auto place = sharedLinks.find(endpoint);
  return place == sharedLinks.end() ? nullptr : place->second;
}

std::shared_ptr<LmIpclibLink> LmIpclib::addLink(const platform::GUID& endpoint, StreamFlags flags) {
  const std::weak_ptr<LmIpclib> weak = weak_from_this();
  auto link = createLink(
      endpoint, (flags & kLinkFlags).bits() | kMadeByConnect,
      [weak](const LmIpclibLink& stopping) {
        if (const auto library = weak.lock()) library->onLinkStopping(stopping);
      },
      [weak](const LmIpclibLink& closed) {
        if (const auto library = weak.lock()) library->onLinkClosed(closed);
      });
  if (!link) return nullptr;
  // Both tables or none, also when there is no memory for the second entry.
  Links entry{{link->linkId(), link}};
  SharedLinks sharedEntry;
  if (flags.has(Flag::Shareable)) sharedEntry.emplace(endpoint, link);
  links.merge(entry);
  sharedLinks.merge(sharedEntry);
  return link;
}

void LmIpclib::removeLink(const LmIpclibLink& link) {
  Trace(TraceChannel::Lib, "> state: {}, linkId: {:#x}", state(), link.linkId());
  Links::node_type removed;
  SharedLinks::node_type removedShared;
  {
    const Lock lock(mutex);
    removed = links.extract(link.linkId());
    // Whichever link stands there by now: that a younger one is no longer shared either, is meant.
    if ((link.flags() & static_cast<std::uint32_t>(Flag::Shareable)) != 0 || link.flags() >= kMadeByConnect) {
      removedShared = sharedLinks.extract(link.endpoint());
    }
    if (state() == State::Stopping) stopCondition_.notify_all();
  }
  Trace(TraceChannel::Lib, "< state: {}", state());
}

void LmIpclib::removeSharedLink(const LmIpclibLink& link) {
  Trace(TraceChannel::Lib, "> state: {}, linkId: {:#x}", state(), link.linkId());
  SharedLinks::node_type removed;
  {
    const Lock lock(mutex);
    removed = sharedLinks.extract(link.endpoint());
  }
  Trace(TraceChannel::Lib, "< state: {}", state());
}

std::vector<std::shared_ptr<LmIpclibLink>> LmIpclib::linkList() const {
  std::vector<std::shared_ptr<LmIpclibLink>> list;
  for (const auto& [id, link] : links) list.push_back(link);
  return list;
}

void LmIpclib::awaitLinks(Lock& lock) {
  stopCondition_.wait_for(lock, stopTimeout_, [this] { return links.empty(); });
}

LmIpcStatusCode LmIpclib::uninit() {
  Trace(TraceChannel::Lib, "> state: {}", state());
  Lock lock(mutex);
  state_ = State::Stopping;
  const auto listening = listeners;
  auto left = linkList();
  lock.unlock();

  Trace(TraceChannel::Lib, "- Closing listeners");
  for (const auto& listener : listening) static_cast<void>(listener->close());
  Trace(TraceChannel::Lib, "- Closing links");
  for (const auto& link : left) link->close();
  left.clear();

  lock.lock();
  Trace(TraceChannel::Lib, "- Waiting for deferred stops");
  awaitLinks(lock);
  left = linkList();
  lock.unlock();
  Trace(TraceChannel::Lib, "- Shutting down links");
  for (const auto& link : left) link->shutdown();
  left.clear();

  lock.lock();
  Trace(TraceChannel::Lib, "- Waiting for deferred stops");
  awaitLinks(lock);
  const LmIpcStatusCode status = links.empty() ? LmIpcStatusCode::Success : LmIpcStatusCode::TimedOut;
  cutOff(lock);
  ipcTrace->removeAllSinks();
  // Hence this one reaches nobody. That is meant.
  Trace(TraceChannel::Lib, "< state: {}, status: {}", state(), status);
  return status;
}

void LmIpclib::cutOff(Lock& lock) {
  auto left = linkList();
  Links().swap(links);
  SharedLinks().swap(sharedLinks);
  listeners.clear();
  const auto task = std::exchange(task_, nullptr);
  lock.unlock();
  // A link and its streams keep each other, and what is queued keeps a stream: without tasks that would be for ever.
  for (const auto& link : left) link->abandon();
  left.clear();
  lock.lock();
  if (task) task->uninit(lock);
}

}  // namespace quill::ipc
