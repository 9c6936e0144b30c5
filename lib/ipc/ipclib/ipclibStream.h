// One end of a conversation between two processes. Both ends send messages, and each message of the peer reaches the
// user's callback, one at a time and in the order in which they were sent. An empty message is the last one: the
// conversation is over. Many streams share one link.
//
//   on the one side                                on the other side
//     connect ... Connected                          a new stream, handed to the listener
//     completeConnect: messages flow                 accept ... Connected: messages flow
//     send, send, ...                                send, send, ...
//     close                                          the empty message; then its close
//     the empty message                              (a close from within that callback still reaches the peer)
//
// Life: always in a std::shared_ptr. A stream lives while its link knows it, and while it has messages to deliver.
// Threading: every member may be called from any thread, unless it says otherwise. The callback runs on threads of the
// executor, with no lock held, and may call everything. Order of locks: a stream's mutex, then its link's lock.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "lib/ipc/ipclib/expected.h"
#include "lib/ipc/ipclib/flags.h"
#include "lib/ipc/ipclib/ipclibMsg.h"
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibWire.h"
#include "lib/task/timerTask.h"
#include "lib/task/workTask.h"
#include "platform/types.h"

namespace quill::ipc {

class LmIpclibLink;

enum class LmIpclibStreamState : std::uint32_t {
  Init = 0,
  Connecting = 1,  // From taking the link until the handshake is over.
  Connected = 2,
  Closing = 3,  // CloseState tells who began.
  Closed = 4,   // Never left.
};

// "unknown" for a number that is none of the states.
[[nodiscard]] std::string_view NameOf(LmIpclibStreamState state) noexcept;

class LmIpclibStream : public std::enable_shared_from_this<LmIpclibStream> {
 public:
  using State = LmIpclibStreamState;
  using RecvCallback = std::function<void(LmIpcStatusCode, std::shared_ptr<LmIpclibMsg>)>;
  using OnComplete = LmIpclibMsg::OnComplete;

  // The side that connects.
  LmIpclibStream(const platform::GUID& endpoint, std::u16string streamName, StreamFlags flags,
                 std::weak_ptr<task::TaskExecutor> executor, RecvCallback recvCallback);
  // The side that accepts, and control streams.
  LmIpclibStream(const platform::GUID& endpoint, std::u16string streamName, StreamFlags flags, std::uint32_t linkValue,
                 std::uint64_t remoteStreamId, std::weak_ptr<task::TaskExecutor> executor,
                 std::shared_ptr<LmIpclibLink> link);
  LmIpclibStream(const LmIpclibStream&) = delete;
  LmIpclibStream& operator=(const LmIpclibStream&) = delete;
  virtual ~LmIpclibStream();

  // Opens the stream on a link that is connected, or connects the new link by way of the stream; the other one is null.
  // Sleeps until the peer has answered, without a limit: `close`, and the link's end, end the wait.
  //   InvalidState   the executor is gone, or connect or accept has run before
  //   InvalidParam   no link; the stream is Closed
  //   NotFound       no connector suits the flags
  //   StreamClosed   closed or shut down meanwhile
  //   otherwise what the link or the peer says
  LmIpcStatusCode connect(StreamFlags flags, const std::shared_ptr<LmIpclibLink>& existingLink,
                          const std::shared_ptr<LmIpclibLink>& newLink);

  // Lets messages flow to the callback; so whoever connects can put the stream away first.
  //   InvalidState   not Connected, or called before
  //   Unexpected     the executor is gone; the stream is Closed
  LmIpcStatusCode completeConnect();

  // Takes the stream on, with the callback for its messages. What came in already is delivered with what comes next.
  //   InvalidState   connect or accept has run before; the callback is dropped
  //   Unexpected     the executor is gone; the stream is Closed
  LmIpcStatusCode accept(StreamFlags flags, RecvCallback recv);

  // Ends the conversation. The callback gets what the peer still has to say, and the empty message when the peer has
  // agreed; or after 10 seconds without an answer, whatever `timeout` says. Only std::chrono::milliseconds::max() means
  // to wait for as long as it takes. When the peer has closed first, this is the agreement, and nothing follows.
  //   InvalidState   not connected, or closed from this side before
  LmIpcStatusCode close(std::chrono::milliseconds timeout);

  // Sends `size` bytes, which stay the caller's and must stay as they are until `onComplete` has been called. That is
  // called once, with no lock held: Success, the bytes are on their way; or why they are not. For a send that is
  // refused it is not called.
  //   InvalidParam   no data, flags other than 0, or no callback
  //   InvalidState   not connected, or closed from this side
  Expected<std::shared_ptr<LmIpclibMsg>> send(StreamFlags flags, std::uint32_t size, const void* data,
                                              OnComplete onComplete);

  // Ends the conversation at once, without a word to the peer. A stream that the peer has closed stays as it is.
  void shutdown();
  // For the link, when nobody will run the callback any more: what is not delivered never is, nor is the empty message.
  // Waits for a callback that runs.
  void abandon();

  [[nodiscard]] std::uint64_t streamId() const noexcept { return streamId_; }  // Unique in this process; begins 0x53.
  // 0 until the peer has answered.
  [[nodiscard]] std::uint64_t remoteStreamId() const noexcept {
    return remoteStreamId_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] const platform::GUID& endpoint() const noexcept { return endpoint_; }
  [[nodiscard]] const std::u16string& streamName() const noexcept { return streamName_; }
  [[nodiscard]] StreamFlags flags() const noexcept { return StreamFlags(flags_.load(std::memory_order_relaxed)); }
  [[nodiscard]] State state() const noexcept { return state_.load(std::memory_order_relaxed); }
  // Sends whose completion is still to come.
  [[nodiscard]] std::uint32_t outstandingSends() const noexcept {
    return outstandingSends_.load(std::memory_order_relaxed);
  }

  // Whether `accept` tells the peer. Before the stream is in use.
  void setOnAcceptSendOpenAck(bool sendOpenAck) noexcept { onAcceptSendOpenAck_ = sendOpenAck; }
  // What the connector has learnt of the peer. Before the stream is in use.
  void setRemote(std::uint32_t linkValue, std::uint64_t remoteStreamId, StreamFlags flags) noexcept;

  // For the link. A block that is addressed to this stream, with its dataSize bytes; one thread at a time.
  //   InvalidState    the stream takes nothing in
  //   ProtocolError   the block does not follow those before it, or there is no memory for its message
  LmIpcStatusCode recvBlock(const LmIpclibBlockHeader& header, const void* data);
  // For the link, when it has handed over a batch of blocks: whole messages go to the callback.
  void deferredDispatch();

  // For messages: one of this stream's is complete.
  void onSendComplete(const std::shared_ptr<LmIpclibMsg>& message);

  // What traces say of a stream.
  static constexpr const char* kTraceBegin = "> state: {}, streamId: {:#x}";
  static constexpr const char* kTraceEnd = "< state: {}, streamId: {:#x}";
  static constexpr const char* kTraceEndStatus = "< state: {}, streamId: {:#x}, status: {}";
  [[nodiscard]] State traceState() const noexcept { return state(); }
  [[nodiscard]] std::uint64_t traceId() const noexcept { return streamId_; }

 protected:
  // The link while there is one: from connect on, or from the beginning, until the stream has let go of it.
  [[nodiscard]] std::shared_ptr<LmIpclibLink> link() const;
  [[nodiscard]] const std::weak_ptr<task::TaskExecutor>& executor() const noexcept { return executor_; }

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Incoming = std::list<std::shared_ptr<LmIpclibMsg>>;

  enum class CloseState : std::uint32_t {
    None = 0,
    LocalClose = 1,    // We have sent Close, and wait for the answer.
    RemoteClose = 2,   // The peer has; the answer goes out when the user closes.
    TimerExpired = 3,  // No answer came in time.
    AckReceived = 4,
  };
  enum class ConnectWait : std::uint32_t {
    None = 0,
    Pending = 1,   // A thread sleeps in connectExistingLink.
    Finished = 2,  // By a failure, or from this side.
    Acked = 3,     // By the peer's OpenAck.
  };
  enum class DispatchState : std::uint32_t { Idle = 0, Queued = 1, Running = 2 };
  enum class EmptyMsgState : std::uint32_t { None = 0, Expected = 1, Queued = 2, Delivered = 3 };

  // Somebody who waits until no more than `threshold` sends are outstanding.
  struct SendWaiter {
    std::uint32_t threshold;
    std::unique_ptr<std::condition_variable> condition;
  };

  // What takes a lock is called with it held, and returns with it held.

  LmIpcStatusCode takeLink(const std::shared_ptr<LmIpclibLink>& link);
  LmIpcStatusCode connectExistingLink(const std::shared_ptr<LmIpclibLink>& link);
  LmIpcStatusCode connectNewLink(StreamFlags flags, const std::shared_ptr<LmIpclibLink>& link,
                                 const std::shared_ptr<task::TaskExecutor>& executor);
  void completeConnectExistingLink(Lock& lock, LmIpcStatusCode status, StreamFlags peerFlags,
                                   std::uint64_t peerStreamId, ConnectWait newWait);
  void endConnectWait(ConnectWait newWait);
  LmIpcStatusCode finishConnect();
  LmIpcStatusCode connectedInit(Lock& lock);
  [[nodiscard]] std::shared_ptr<LmIpclibMsg> newOpen();
  // A message of the protocol's own, without payload.
  [[nodiscard]] std::shared_ptr<LmIpclibMsg> newProtoMsg(LmIpclibMsgType type, StreamFlags flags = {}) const;

  [[nodiscard]] bool isClosing(CloseState by) const noexcept { return state() == State::Closing && closeState_ == by; }
  void startCloseTimer(Lock& lock, std::chrono::milliseconds timeout);
  void onCloseTimerExpired();
  void onCloseAnswered(Lock& lock);
  // Closes, and sees to it that the user hears the end.
  void closeStream(Lock& lock);
  void queueEmptyMsg(Lock& lock);
  // Lets go of the tasks and of the link. Gives the lock up meanwhile: those who run on the tasks may want it, and a
  // link without streams closes.
  void shutdownStream(Lock& lock);

  [[nodiscard]] bool takesBlocks() const noexcept;
  LmIpcStatusCode addBlock(const LmIpclibBlockHeader& header, const void* data);
  LmIpcStatusCode completePartialMsg(Lock& lock, const LmIpclibBlockHeader& header);
  void addIncomingMessage(std::shared_ptr<LmIpclibMsg> message);

  // The body of the dispatch task.
  static void runDispatch(const std::shared_ptr<LmIpclibStream>& stream);
  void queueDispatch(Lock& lock);
  void dispatch();
  void deliver(Incoming& messages);
  void onProtoMsg(const std::shared_ptr<LmIpclibMsg>& message);
  void onProtoClose();
  void onProtoCloseAck();
  void onProtoShutdown();
  void onCallbackFailed();

  void decrementOustandingSends();

  void setState(State state) noexcept { state_.store(state, std::memory_order_relaxed); }
  void addFlags(StreamFlags flags) noexcept { flags_.fetch_or(flags.bits(), std::memory_order_relaxed); }

  mutable std::mutex mutex_;  // Guards all below that is neither const nor atomic, unless it says otherwise.
  std::atomic<State> state_{State::Init};  // Changed under the mutex; traces read it without.
  std::uint8_t dispatchEnabled_ = 0;       // While 0, messages stay in incoming_.
  const std::uint64_t streamId_;
  const platform::GUID endpoint_;
  const std::u16string streamName_;  // What the initiator asked for.
  std::atomic<std::uint32_t> flags_;
  [[maybe_unused]] const std::uint32_t one_ = 1;  // Nobody interprets it, nor the next.
  [[maybe_unused]] std::uint32_t linkValue_ = 0;
  std::atomic<std::uint64_t> remoteStreamId_;
  const std::weak_ptr<task::TaskExecutor> executor_;
  RecvCallback recvCallback_;  // Set before dispatchEnabled_, and constant from then on.
  std::shared_ptr<LmIpclibLink> link_;
  std::weak_ptr<LmIpclibLink> weakLink_;  // The link that the stream has let go of.
  Incoming incoming_;
  bool onAcceptSendOpenAck_ = false;
  // Nobody reads these. The last four count messages of type Msg alone.
  std::atomic<std::uint64_t> bytesReceivedOnWire_ = 0;
  std::atomic<std::uint64_t> bytesSent_ = 0;
  std::atomic<std::uint64_t> bytesReceived_ = 0;
  std::atomic<std::uint64_t> msgsSent_ = 0;
  std::atomic<std::uint64_t> msgsReceived_ = 0;
  std::shared_ptr<LmIpclibMsg> partialMsg_;  // The message that blocks are added to.
  ConnectWait connectWait_ = ConnectWait::None;
  LmIpcStatusCode connectStatus_ = LmIpcStatusCode::Unexpected;
  std::unique_ptr<std::condition_variable> handshake_;  // While a thread sleeps in connectExistingLink.
  std::atomic<std::uint32_t> outstandingSends_ = 0;
  std::atomic<std::uint32_t> sendWaiterCount_ = 0;
  std::mutex sendWaitMutex_;           // Guards sendWaiters_ alone. Taken without mutex_.
  std::list<SendWaiter> sendWaiters_;  // Nobody waits yet; whoever does is told.
  std::shared_ptr<task::WorkTask<void(std::shared_ptr<LmIpclibStream>)>> dispatchTask_;
  std::shared_ptr<task::TimerTask> closeTimerTask_;
  DispatchState dispatchState_ = DispatchState::Idle;
  [[maybe_unused]] EmptyMsgState emptyMsgState_ = EmptyMsgState::None;  // Nobody reads it.
  CloseState closeState_ = CloseState::None;
};

}  // namespace quill::ipc
