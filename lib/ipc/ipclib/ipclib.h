// The entry to the library: gives streams to endpoints, and ends them all.
//
//   const auto library = std::make_shared<LmIpclib>();
//   if (library->init(0) != LmIpcStatusCode::Success) ...
//   const auto stream = library->connect(endpoint, u"name", StreamFlags(9), callback, 0, nullptr);
//   if (stream) (*stream)->completeConnect();
//   ...
//   library->uninit();
//
// Life: always in a std::shared_ptr, and used once. Whoever calls `init` calls `uninit` before letting go of it, for a
// callback of the library may be the last to hold it, and must not be the one that ends it.
// Threading: every member may be called from any thread, but `uninit` from no callback of the library. Order of locks:
// a link's lock, then this one's.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lib/ipc/ipclib/expected.h"
#include "lib/ipc/ipclib/flags.h"
#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibListener.h"
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTask.h"
#include "platform/handles.h"
#include "platform/types.h"

namespace quill::ipc {

class LmIpclib : public std::enable_shared_from_this<LmIpclib> {
 public:
  using State = LmIpclibState;
  using Stream = std::shared_ptr<LmIpclibStream>;
  using RecvCallback = LmIpclibStream::RecvCallback;

  static constexpr std::chrono::milliseconds kStopTimeout{10'000};

  // `stopTimeout` is how long each of the two waits of `uninit` is at most.
  explicit LmIpclib(std::chrono::milliseconds stopTimeout = kStopTimeout) noexcept : stopTimeout_(stopTimeout) {}
  LmIpclib(const LmIpclib&) = delete;
  LmIpclib& operator=(const LmIpclib&) = delete;
  // Cuts off, without a wait for the peers, what a missing `uninit` has left.
  virtual ~LmIpclib();

  // Nothing reads the options.
  //   InvalidState   called before, with success
  //   Unexpected     the system has no means; it may be called again
  LmIpcStatusCode init(std::uint32_t options);

  // A stream that is connected to the endpoint; nothing comes to `recvCallback` before its `completeConnect`. Waits at
  // most `timeoutMs` for the service to be there, or until `abortEvent` (may be null) is signalled; then, without a
  // limit, until the service has answered. With Shareable among the flags the stream may share its link with others to
  // the same endpoint. Flags 9 and 265 are those that this program uses.
  //   InvalidParam     neither ByConnector nor the flag 0x10; neither Shareable nor Exclusive, or both
  //   NotImplemented   the flags 0x04 and 0x10; or there is no kind of link
  //   InvalidState     not initialised, or uninitialised
  //   Abort            `abortEvent` was signalled
  //   otherwise what LmIpclibStream::connect says
  Expected<Stream> connect(const platform::GUID& endpoint, const std::u16string& streamName, StreamFlags flags,
                           const RecvCallback& recvCallback, platform::DWORD timeoutMs,
                           platform::EventHandle abortEvent);

  // Ends all links, in order as far as the peers play along within the time-out, then at once; and waits for the
  // callbacks that run. Every accepted send is completed, and no callback runs, when this returns. The traces lose
  // their sinks.
  //   TimedOut   there were links that did not end within both waits; they have been cut off
  LmIpcStatusCode uninit();

  [[nodiscard]] State state() const noexcept { return state_.load(std::memory_order_relaxed); }

 protected:
  using Links = std::map<std::uint64_t, std::shared_ptr<LmIpclibLink>>;
  // The order of the bytes, as they lie in memory.
  struct ByBytes {
    [[nodiscard]] bool operator()(const platform::GUID& left, const platform::GUID& right) const noexcept;
  };
  using SharedLinks = std::map<platform::GUID, std::shared_ptr<LmIpclibLink>, ByBytes>;
  using Lock = std::unique_lock<std::mutex>;

  mutable std::mutex mutex;
  Links links;                                               // Every link that is alive, by its id.
  SharedLinks sharedLinks;                                   // Those that further streams may share, by endpoint.
  std::vector<std::shared_ptr<LmIpclibListener>> listeners;  // For a library that serves, which nothing here fills in.

 private:
  // The link that a stream is to connect on: one that is there and connected, or a new one.
  struct LinkChoice {
    std::shared_ptr<LmIpclibLink> existing;
    std::shared_ptr<LmIpclibLink> made;
  };

  Expected<Stream> connectStream(const platform::GUID& endpoint, const std::u16string& streamName, StreamFlags flags,
                                 const RecvCallback& recvCallback, platform::DWORD timeoutMs,
                                 platform::EventHandle abortEvent);
  [[nodiscard]] std::shared_ptr<task::TaskExecutor> executor() const;
  Expected<LinkChoice> chooseLink(const platform::GUID& endpoint, StreamFlags flags);
  [[nodiscard]] std::shared_ptr<LmIpclibLink> findSharedLink(const platform::GUID& endpoint, StreamFlags flags) const;
  std::shared_ptr<LmIpclibLink> addLink(const platform::GUID& endpoint, StreamFlags flags);

  // For the callbacks of a link.
  void onLinkStopping(const LmIpclibLink& link) { removeSharedLink(link); }
  void onLinkClosed(const LmIpclibLink& link) { removeLink(link); }
  void removeLink(const LmIpclibLink& link);
  void removeSharedLink(const LmIpclibLink& link);

  [[nodiscard]] std::vector<std::shared_ptr<LmIpclibLink>> linkList() const;
  void awaitLinks(Lock& lock);
  // Empties the tables and ends the tasks. Gives the lock up meanwhile.
  void cutOff(Lock& lock);

  const std::chrono::milliseconds stopTimeout_;
  std::atomic<State> state_ = State::Init;          // Changed under the mutex; traces read it without.
  [[maybe_unused]] std::uint32_t initOptions_ = 0;  // Nobody reads it.
  std::unique_ptr<LmIpclibTask> task_;
  std::condition_variable stopCondition_;  // A link has gone, while the library stops.
};

}  // namespace quill::ipc
