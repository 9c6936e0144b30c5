// What carries streams: one connection between this process and a service, shared by all streams to that service. The
// link keeps the streams, and the messages that wait to be sent; how bytes move is for the class that derives.
//
// Life: always in a std::shared_ptr. Its streams keep it, and it keeps its streams until they leave. When the last one
// leaves, a connected link closes.
// Threading: every public member may be called from any thread. No stream, message or callback of a user is called with
// the lock held, but for `onStopping`. A lock that is passed on may have been given up when the operation returns.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "lib/ipc/ipclib/ipclibMsg.h"
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/operationTrace.h"
#include "lib/task/waitTask.h"
#include "lib/task/workTask.h"
#include "platform/handles.h"
#include "platform/types.h"

namespace quill::ipc {

class LmIpclibLinkListener;
class LmIpclibStream;
class LmIpclibStreamCtrl;

enum class LmIpclibLinkState : std::uint32_t {
  Init = 0,
  Connecting = 1,  // One thread connects it, others wait in connectWait. What is sent waits, too.
  Connected = 2,
  Closing = 3,  // Nothing more is taken; what waits still goes out.
  Closed = 4,   // Never left.
  Error = 5,    // A fault; passes at once to ShuttingDown.
  ShuttingDown = 6,
};

// "unknown" for a number that is none of the states.
[[nodiscard]] std::string_view NameOf(LmIpclibLinkState state) noexcept;

class LmIpclibLink : public std::enable_shared_from_this<LmIpclibLink> {
 public:
  using State = LmIpclibLinkState;
  using Lock = std::unique_lock<std::mutex>;
  using Callback = std::function<void(LmIpclibLink&)>;
  // The streams that a transaction had blocks for, by their streamId; the control stream stands under 0.
  using StreamTable = std::map<std::uint64_t, std::shared_ptr<LmIpclibStream>>;

  // `onStopping` is called once, as the link begins to stop, with its lock held; `onClosed` once, when it is Closed,
  // without.
  LmIpclibLink(const platform::GUID& endpoint, std::uint32_t flags, Callback onStopping, Callback onClosed);
  LmIpclibLink(const LmIpclibLink&) = delete;
  LmIpclibLink& operator=(const LmIpclibLink&) = delete;
  virtual ~LmIpclibLink();

  // Makes the control stream and the tasks; the class that derives arms them. With the lock held.
  //   InvalidState   not Connecting
  //   otherwise why there is no control stream
  virtual LmIpcStatusCode start(const std::shared_ptr<task::TaskExecutor>& executor, unsigned& errorCode);

  // Ends the link: in order when it is Connected, at once when it is in Error, and otherwise nothing.
  virtual void stop(Lock& lock) = 0;
  // Takes in what the peer has sent, and tells which streams were addressed.
  virtual LmIpcStatusCode recv(StreamTable& streamTable) = 0;
  // Signalled when there is something for `recv`.
  [[nodiscard]] virtual platform::EventHandle getRecvEvent() const = 0;
  virtual void stopWorkers() = 0;
  // A fault: ends the link at once.
  virtual void linkError() = 0;
  // Tells the peer that the link has ended. With the lock held.
  virtual void linkStop(Lock& lock) = 0;
  // Sends what waits. With the lock held.
  virtual LmIpcStatusCode performDeferredSend(Lock& lock) = 0;

  // Whoever gets Success connects the link. InvalidState: somebody has begun before.
  LmIpcStatusCode connecting();
  // Sleeps until the link is connected or never will be: InvalidState then.
  LmIpcStatusCode connectWait();
  void notifyConnectWaiters();

  // Takes a message, which is sent as soon as may be; never waits for the peer. Each message that is taken is completed
  // once: StreamClosed, if it could not be sent. InvalidState: the link takes nothing any more.
  LmIpcStatusCode send(const std::shared_ptr<LmIpclibMsg>& message);

  //   InvalidState    the link has begun to stop
  //   AlreadyExists   there is a stream of that id
  LmIpcStatusCode addStream(const std::shared_ptr<LmIpclibStream>& stream);
  // The stream leaves; the link ends with the last one. NotFound: not a stream of this link, or its control stream.
  LmIpcStatusCode removeStream(const std::shared_ptr<LmIpclibStream>& stream);
  // Takes addStream back. A link that has begun to end meanwhile ends with the last one, too.
  LmIpcStatusCode eraseStream(const std::shared_ptr<LmIpclibStream>& stream);

  // Takes new streams of the peer. Null where nobody listens.
  [[nodiscard]] std::shared_ptr<LmIpclibLinkListener> getLinkListener() const;

  // Ends the link in order: its streams are closed.
  void close();
  // Ends the link at once: its streams are shut down.
  void shutdown();
  // Lets go of the streams that are left behind `shutdown`, with what they have not delivered; waits for their
  // callbacks that run. For the library, when it cannot wait any longer for those to end by themselves.
  void abandon();

  [[nodiscard]] std::uint64_t linkId() const noexcept { return linkId_; }  // Unique in this process; begins 0x4C.
  [[nodiscard]] const platform::GUID& endpoint() const noexcept { return endpoint_; }
  [[nodiscard]] std::uint32_t flags() const noexcept { return flags_.load(std::memory_order_relaxed); }
  [[nodiscard]] State state() const noexcept { return m_state.load(std::memory_order_relaxed); }
  [[nodiscard]] std::uint32_t linkValue() const noexcept { return linkValue_; }

  // What traces say of a link.
  static constexpr const char* kTraceBegin = "> m_state: {}, linkId: {:#x}";
  static constexpr const char* kTraceEnd = "< m_state: {}, linkId: {:#x}";
  static constexpr const char* kTraceEndStatus = "< m_state: {}, linkId: {:#x}, status: {}";
  [[nodiscard]] State traceState() const noexcept { return state(); }
  [[nodiscard]] std::uint64_t traceId() const noexcept { return linkId_; }

 protected:
  enum class SendState : std::uint32_t {
    NotStarted = 0,      // What is sent only waits.
    Idle = 1,            // The next send submits the task.
    Queued = 2,          // The task has been submitted.
    WaitingForPeer = 3,  // The peer has not taken the last transaction, or not said yet that it is there.
    Sending = 4,         // One thread writes, without the lock.
  };
  // Why the peer makes this side stop.
  enum class StopReason : std::uint32_t { None = 0, PeerStopped = 1, PeerFailed = 2, PeerGone = 3 };

  using Messages = std::list<std::shared_ptr<LmIpclibMsg>>;
  using LinkTrace = OperationTrace<LmIpclibLink>;

  // Ends a link that has begun to stop and has nothing left to do, and then returns true. Closes one that is connected
  // and has no streams. With the lock held.
  bool shutdownLinkWithCheck(Lock& lock);

  void setState(State state) noexcept { m_state.store(state, std::memory_order_relaxed); }
  void setLinkValue(std::uint32_t value) noexcept { linkValue_ = value; }
  void setRemoteLinkValue(std::uint64_t value) noexcept { remoteLinkValue_ = value; }
  void setPeerValue(std::uint32_t value) noexcept { peerValue_ = value; }
  // The high half alone.
  void addFlags(std::uint32_t value) noexcept { flags_.fetch_or(value & kFlagsOnTheWire, std::memory_order_relaxed); }
  void addConnectionBits(std::uint32_t value) noexcept { connectionBits_ |= value; }

 private:
  const std::uint64_t linkId_;

 protected:
  mutable std::mutex m_lock;                // Guards all below that is neither const nor atomic.
  std::atomic<State> m_state{State::Init};  // Changed under the lock; traces read it without.

 private:
  const platform::GUID endpoint_;
  std::atomic<std::uint32_t> flags_;              // Low half: how it was connected. High half: the peer's.
  [[maybe_unused]] std::uint32_t peerValue_ = 0;  // Nobody reads it.

 protected:
  std::shared_ptr<LmIpclibStreamCtrl> controlStream;

 private:
  [[maybe_unused]] std::uint64_t controlStreamId_ = 0;  // Nobody reads it.
  std::shared_ptr<task::WorkTask<void(std::weak_ptr<LmIpclibLink>)>> deferredSendTask_;

 protected:
  std::shared_ptr<task::WaitTask> recvWait;
  StopReason stopReason = StopReason::None;
  Messages deferredSends;  // Taken, and not written yet.
  Callback onStopping;

 private:
  const Callback onClosed_;

 protected:
  std::map<std::uint64_t, std::shared_ptr<LmIpclibStream>> streams;
  // Nobody reads these. With block headers; then data alone, on the way in that of messages of type Msg.
  std::atomic<std::uint64_t> bytesSentOnWire = 0;
  std::atomic<std::uint64_t> bytesReceivedOnWire = 0;
  std::atomic<std::uint64_t> bytesSent = 0;
  std::atomic<std::uint64_t> bytesReceived = 0;
  SendState sendState = SendState::NotStarted;

 private:
  [[maybe_unused]] std::uint32_t connectionBits_ = 0;   // Nobody reads it.
  std::uint32_t linkValue_ = 0;                         // Copied to every stream and channel; nobody interprets it.
  [[maybe_unused]] std::uint64_t remoteLinkValue_ = 0;  // Nobody reads it.
  std::condition_variable_any connectCondition_;

 protected:
  std::weak_ptr<LmIpclibLinkListener> linkListener;

 private:
  bool endWhenDone(Lock& lock);
  void queueDeferredSend(Lock& lock);
  LmIpcStatusCode startControlStream(const std::shared_ptr<task::TaskExecutor>& executor);
  // The bodies of the tasks.
  static void runDeferredSend(const std::weak_ptr<LmIpclibLink>& weak);
  static void runRecv(const std::weak_ptr<LmIpclibLink>& weak);

  [[maybe_unused]] std::u16string emptyText_;  // These two stay empty.
  [[maybe_unused]] Messages emptyMessages_;
};

}  // namespace quill::ipc
