// The one kind of link: transactions cross between two processes of one machine, through a block of shared memory in
// each direction. At most one transaction is in a block: its writer fills the block and signals, the reader copies the
// transaction out, checks it, and signals back; only then may the writer use the block again.
//
//   event            set by                                     on its     heard by the other on its
//   data ready       the writer: a transaction is complete      send       receive channel
//   data consumed    the reader: it has been taken out; once
//                    at the start too                           receive    send channel
//   error            the side that fails                        receive    send channel
//   stop             the side that has closed                   receive    send channel
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibLinkChannelResourceWin.h"
#include "lib/ipc/ipclib/ipclibLinkChannelSharedMemWin.h"
#include "lib/ipc/ipclib/transactionReader.h"
#include "platform/handles.h"
#include "platform/pipes.h"
#include "platform/raii.h"

namespace quill::ipc {

class TransactionWriter;

class LmIpclibLinkSharedMemWin : public LmIpclibLink {
 public:
  using LmIpclibLink::LmIpclibLink;
  ~LmIpclibLinkSharedMemWin() override;

  LmIpcStatusCode start(const std::shared_ptr<task::TaskExecutor>& executor, unsigned& errorCode) override;
  void stop(Lock& lock) override;
  LmIpcStatusCode recv(StreamTable& streamTable) override;
  [[nodiscard]] platform::EventHandle getRecvEvent() const override;
  void stopWorkers() override;
  void linkError() override;
  void linkStop(Lock& lock) override;
  LmIpcStatusCode performDeferredSend(Lock& lock) override;
  virtual void linkError(Lock& lock);

  // Takes over what the connector has brought, while the link is Connecting; all handles stay the caller's, and second
  // ones are kept. `errorCode` is the system's, for a failure of the system.
  //   InvalidState   the link is not Connecting
  //   Unexpected     a handle is of no use; the link is in Error
  LmIpcStatusCode attach(std::uint32_t linkValue, std::uint64_t remoteLinkValue, std::uint32_t peerFlags,
                         std::uint32_t channelSize, const LmIpclibLinkChannelResourceWin& recvResources,
                         const LmIpclibLinkChannelResourceWin& sendResources, platform::ProcessHandle peerProcessHandle,
                         std::uint32_t peerValue, unsigned& errorCode);

  // The end of a new pipe by which the peer can see this process go: nothing is ever written to it. The link's own,
  // until the next call. Null on failure.
  [[nodiscard]] platform::PipeHandle getReadPipeReference();

  // Waits until the peer has let go of its pipe. False when it keeps none.
  bool blockOnReadClientPipe();

 private:
  using OnSignal = void (LmIpclibLinkSharedMemWin::*)();

  LmIpcStatusCode startWith(const std::shared_ptr<task::TaskExecutor>& executor, unsigned& errorCode);
  [[nodiscard]] std::shared_ptr<task::WaitTask> newWait(task::TaskExecutor& executor, platform::WaitableHandle handle,
                                                        OnSignal onSignal);
  void arm();
  LmIpcStatusCode openChannels(const LmIpclibLinkChannelResourceWin& recvResources,
                               const LmIpclibLinkChannelResourceWin& sendResources, unsigned& errorCode);
  LmIpcStatusCode keepPeerProcess(platform::ProcessHandle peerProcessHandle, unsigned& errorCode);

  // The callbacks of the waits.
  void onDataConsumed();
  void onPeerError();
  void onPeerStop();
  void onPeerGone();

  void stopAtOnce(Lock& lock);
  void stopInOrder(Lock& lock);
  void giveUpSends(Lock& lock);
  void stopRecvWorker(Lock& lock);
  void beginToStop(State state);

  // Moves what fits from `batch` into the transaction, and each message that is all written to `completed`.
  void pack(TransactionWriter& transaction, Messages& batch, Messages& completed);
  // Sees to what did not fit. Whether the link may be able to end now.
  bool putBack(Messages& batch, Messages& failed);

  [[nodiscard]] LmIpcStatusCode recvTransaction(StreamTable& streamTable);
  // The transaction in the receive channel, in recvBuffer_; empty when its size is none.
  [[nodiscard]] std::span<std::byte> copyTransaction();
  LmIpcStatusCode recvBlock(const LmIpclibBlock& block, StreamTable& streamTable);
  [[nodiscard]] std::shared_ptr<LmIpclibStream> findStream(std::uint64_t destStreamId, std::uint64_t expectedPeer,
                                                           StreamTable& streamTable);
  void awaitNextTransaction();

  std::shared_ptr<LmIpclibLinkChannelSharedMemWin> sendChannel_;
  std::shared_ptr<LmIpclibLinkChannelSharedMemWin> recvChannel_;
  platform::UniquePipe readPipe_;
  platform::UniquePipe writePipe_;
  std::uint32_t channelSize_ = 0;  // Bytes of either block.
  // Of recv alone, as is recvTrxSeqNo_. Nobody writes to it beforehand: most launches need the first page of it.
  std::unique_ptr<std::byte[]> recvBuffer_;
  std::uint64_t sendTrxSeqNo_ = 0;  // Of whoever has the sending role.
  std::uint64_t recvTrxSeqNo_ = 0;
  std::shared_ptr<task::WaitTask> dataConsumedWait_;
  std::shared_ptr<task::WaitTask> peerErrorWait_;
  std::shared_ptr<task::WaitTask> peerStopWait_;
  std::shared_ptr<platform::UniqueProcess> peerProcess_;
  std::shared_ptr<task::WaitTask> peerGoneWait_;
  // For the side that serves, which nothing here fills in.
  std::shared_ptr<platform::UniquePipe> peerPipe_;
  std::shared_ptr<task::WaitTask> peerPipeTask_;
};

}  // namespace quill::ipc
