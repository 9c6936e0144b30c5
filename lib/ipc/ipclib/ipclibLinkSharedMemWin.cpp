#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibStreamCtrl.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/operationTrace.h"
#include "lib/ipc/ipclib/transactionWriter.h"
#include "platform/error.h"

namespace quill::ipc {
namespace {

constexpr std::uint32_t kPeerTakenFrom = 2;

template <class Handle>
bool isUsable(Handle handle) {
  return handle.value() != 0 && handle.value() != ~std::uintptr_t{0};
}

template <class Owner>
bool isUsable(const std::shared_ptr<Owner>& holder) {
  return holder && isUsable(holder->get());
}

// Each goes when it has been told: what its callback keeps is the user's, and is never let go of with a lock held.
template <class Messages>
void complete(Messages& messages, LmIpcStatusCode status) {
  for (; !messages.empty(); messages.pop_front()) messages.front()->sendComplete(status);
}

}  // namespace

LmIpclibLinkSharedMemWin::~LmIpclibLinkSharedMemWin() {
  // Whoever waits for a handle goes before the handle.
  for (auto* wait : {&dataConsumedWait_, &peerErrorWait_, &peerStopWait_, &peerGoneWait_, &peerPipeTask_, &recvWait}) {
    wait->reset();
  }
  Trace(TraceChannel::Link, "- m_state: {}, linkId: {:#x}", state(), linkId());
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::attach(std::uint32_t linkValue, std::uint64_t remoteLinkValue,
                                                 std::uint32_t peerFlags, std::uint32_t channelSize,
                                                 const LmIpclibLinkChannelResourceWin& recvResources,
                                                 const LmIpclibLinkChannelResourceWin& sendResources,
                                                 platform::ProcessHandle peerProcessHandle, std::uint32_t peerValue,
                                                 unsigned& errorCode) {
  errorCode = 0;
  const Lock lock(m_lock);
  LinkTrace trace(TraceChannel::Link, *this);
  if (state() != State::Connecting) return trace.ends(LmIpcStatusCode::InvalidState);
  setLinkValue(linkValue);
  setRemoteLinkValue(remoteLinkValue);
  addFlags(peerFlags);
  channelSize_ = channelSize;
  LmIpcStatusCode status = openChannels(recvResources, sendResources, errorCode);
  if (status == LmIpcStatusCode::Success) {
    status = keepPeerProcess(peerProcessHandle, errorCode);
    setPeerValue(peerValue);
    addConnectionBits(kPeerTakenFrom);
  }
  if (status != LmIpcStatusCode::Success) setState(State::Error);
  return trace.ends(status);
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::openChannels(const LmIpclibLinkChannelResourceWin& recvResources,
                                                       const LmIpclibLinkChannelResourceWin& sendResources,
                                                       unsigned& errorCode) {
  sendChannel_ = std::make_shared<LmIpclibLinkChannelSharedMemWin>(linkValue(), flags(), channelSize_);
  const LmIpcStatusCode status = sendChannel_->open(sendResources, errorCode);
  if (status != LmIpcStatusCode::Success) return status;
  recvChannel_ = std::make_shared<LmIpclibLinkChannelSharedMemWin>(linkValue(), flags(), channelSize_);
  return recvChannel_->open(recvResources, errorCode);
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::keepPeerProcess(platform::ProcessHandle peerProcessHandle,
                                                          unsigned& errorCode) {
  if (!peerProcess_) peerProcess_ = std::make_shared<platform::UniqueProcess>();
  const platform::ProcessHandle own = platform::GetCurrentProcess();
  if (platform::DuplicateHandle(own, peerProcessHandle, own, peerProcess_->put(), 0, false,
                                platform::DUPLICATE_SAME_ACCESS)) {
    return LmIpcStatusCode::Success;
  }
  errorCode = platform::GetLastError();
  return LmIpcStatusCode::Unexpected;
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::start(const std::shared_ptr<task::TaskExecutor>& executor,
                                                unsigned& errorCode) {
  Lock lock(m_lock);
  LinkTrace trace(TraceChannel::Link, *this);
  const LmIpcStatusCode status = startWith(executor, errorCode);
  if (status != LmIpcStatusCode::Success) {
    Trace(TraceChannel::Link, "- m_state: {}, linkId: {:#x}, status: {}", state(), linkId(), status);
    linkError(lock);
  }
  return trace.ends(status);
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::startWith(const std::shared_ptr<task::TaskExecutor>& executor,
                                                    unsigned& errorCode) {
  try {
    recvBuffer_ = std::make_unique_for_overwrite<std::byte[]>(channelSize_);
  } catch (const std::bad_alloc&) {
    return LmIpcStatusCode::OutOfMemory;
  }
  const LmIpcStatusCode status = LmIpclibLink::start(executor, errorCode);
  if (status != LmIpcStatusCode::Success) return status;

  using Self = LmIpclibLinkSharedMemWin;
  dataConsumedWait_ = newWait(*executor, sendChannel_->getDataConsumedEvent(), &Self::onDataConsumed);
  peerErrorWait_ = newWait(*executor, sendChannel_->getErrorEvent(), &Self::onPeerError);
  peerStopWait_ = newWait(*executor, sendChannel_->getStopEvent(), &Self::onPeerStop);
  if (!isUsable(peerProcess_) && !isUsable(peerPipe_)) {
    Trace(TraceChannel::Link, "< m_state: {}, linkId: {:#x}, Error: peer handle or pipe not found", state(), linkId());
    return LmIpcStatusCode::Unexpected;
  }
  const platform::WaitableHandle peer = isUsable(peerProcess_) ? platform::WaitableHandle(peerProcess_->get())
                                                               : platform::WaitableHandle(peerPipe_->get());
  peerGoneWait_ = newWait(*executor, peer, &Self::onPeerGone);
  sendState = SendState::WaitingForPeer;
  setState(State::Connected);
  arm();
  return LmIpcStatusCode::Success;
}

std::shared_ptr<task::WaitTask> LmIpclibLinkSharedMemWin::newWait(task::TaskExecutor& executor,
                                                                  platform::WaitableHandle handle, OnSignal onSignal) {
  return std::make_shared<task::WaitTask>(executor, handle, [weak = weak_from_this(), onSignal] {
    if (const auto link = weak.lock()) (static_cast<LmIpclibLinkSharedMemWin&>(*link).*onSignal)();
  });
}

// At the end the peer hears that its first transaction may come.
void LmIpclibLinkSharedMemWin::arm() {
  if (isUsable(peerProcess_)) {
    Trace(TraceChannel::Link, "< m_state: {}, linkId: {:#x}, start notification on peer process", state(), linkId());
    peerGoneWait_->start();
  } else {
    Trace(TraceChannel::Link, "< m_state: {}, linkId: {:#x}, start notification on peer pipe", state(), linkId());
    if (peerPipeTask_) peerPipeTask_->start();
  }
  dataConsumedWait_->start();
  recvWait->start();
  peerErrorWait_->start();
  peerStopWait_->start();
  recvChannel_->setDataConsumed();
}

void LmIpclibLinkSharedMemWin::onDataConsumed() {
  Lock lock(m_lock);
  const bool goesOn = state() == State::Connecting || state() == State::Connected || state() == State::Closing;
  if (goesOn && dataConsumedWait_) dataConsumedWait_->start();
  static_cast<void>(performDeferredSend(lock));
}

void LmIpclibLinkSharedMemWin::onPeerError() {
  Lock lock(m_lock);
  stopReason = StopReason::PeerFailed;
  linkError(lock);
}

void LmIpclibLinkSharedMemWin::onPeerStop() {
  Lock lock(m_lock);
  stopReason = StopReason::PeerStopped;
  if (state() == State::Closing) {
    giveUpSends(lock);
  } else {
    stop(lock);
  }
}

// What waits to be sent while the link closes would wait for ever: a peer that has stopped reads nothing more.
void LmIpclibLinkSharedMemWin::giveUpSends(Lock& lock) {
  Messages unsent;
  unsent.swap(deferredSends);
  lock.unlock();
  complete(unsent, LmIpcStatusCode::StreamClosed);
  lock.lock();
  shutdownLinkWithCheck(lock);
}

void LmIpclibLinkSharedMemWin::onPeerGone() {
  if (isUsable(peerPipe_)) blockOnReadClientPipe();
  Lock lock(m_lock);
  stopReason = StopReason::PeerGone;
  linkError(lock);
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::performDeferredSend(Lock& lock) {
  LinkTrace trace(TraceChannel::Msg, *this);
  if (sendState == SendState::Sending) return trace.ends(LmIpcStatusCode::Success);
  if (deferredSends.empty()) {
    sendState = SendState::Idle;
    return trace.ends(LmIpcStatusCode::Success);
  }
  TransactionWriter transaction(sendChannel_->getView());
  Messages completed;
  Messages failed;
  bool mayEnd = false;
  do {  // What is queued meanwhile joins the same transaction.
    Messages batch;
    batch.swap(deferredSends);
    sendState = SendState::Sending;
    lock.unlock();
    pack(transaction, batch, completed);
    lock.lock();
    mayEnd = putBack(batch, failed);
  } while (transaction.hasRoom() && !deferredSends.empty());
  transaction.finish(++sendTrxSeqNo_);
  sendState = SendState::WaitingForPeer;
  lock.unlock();
  sendChannel_->setDataReady();
  complete(completed, LmIpcStatusCode::Success);
  complete(failed, LmIpcStatusCode::StreamClosed);
  if (mayEnd) {
    lock.lock();
    shutdownLinkWithCheck(lock);
  }
  return trace.ends(LmIpcStatusCode::Success);
}

void LmIpclibLinkSharedMemWin::pack(TransactionWriter& transaction, Messages& batch, Messages& completed) {
  while (transaction.hasRoom() && !batch.empty()) {
    const auto block = transaction.append(*batch.front());
    if (block.last) completed.splice(completed.end(), batch, batch.begin());
    bytesSentOnWire.fetch_add(block.blockSize, std::memory_order_relaxed);
    bytesSent.fetch_add(block.dataSize, std::memory_order_relaxed);
  }
}

// A message that was cut in two is the first to go on.
bool LmIpclibLinkSharedMemWin::putBack(Messages& batch, Messages& failed) {
  const bool isFailing = state() == State::Error || state() == State::ShuttingDown;
  if (batch.empty()) return isFailing || state() == State::Closing;
  if (isFailing || stopReason != StopReason::None) {
    failed.splice(failed.end(), batch);
    return true;
  }
  deferredSends.splice(deferredSends.begin(), batch);
  return false;
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::recv(StreamTable& streamTable) {
  Trace(TraceChannel::Msg, "> m_state: {}, linkId: {:#x}", state(), linkId());
  LinkTrace trace(LinkTrace::Begun{}, TraceChannel::Link, *this);
  const LmIpcStatusCode status = recvTransaction(streamTable);
  if (status == LmIpcStatusCode::ProtocolError) {
    linkError();
  } else {
    awaitNextTransaction();
  }
  return trace.ends(status);
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::recvTransaction(StreamTable& streamTable) {
  const std::span<std::byte> copied = copyTransaction();
  TransactionReader transaction(copied);
  if (transaction.open(++recvTrxSeqNo_) != LmIpcStatusCode::Success) return LmIpcStatusCode::ProtocolError;
  LmIpcStatusCode status = LmIpcStatusCode::Success;
  LmIpclibBlock block;
  auto step = transaction.next(block);
  for (; step == TransactionReader::Step::Block; step = transaction.next(block)) {
    status = recvBlock(block, streamTable);
    if (status == LmIpcStatusCode::ProtocolError) return status;
  }
  return step == TransactionReader::Step::Fault ? LmIpcStatusCode::ProtocolError : status;
}

std::span<std::byte> LmIpclibLinkSharedMemWin::copyTransaction() {
  const std::span<const std::byte> view = recvChannel_->getView();
  const auto header = readTrxHeader(view);
  // The peer writes to the view at any time: the compiler is not to look at it twice for what it has read once.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (!header) return {};
  Trace(TraceChannel::Link, "linkId: {:#x}, trxSeqNo: {}, trxSize: {:#x}", linkId(), header->trxSeqNo, header->trxSize);
  if (header->trxSize < LmIpclibTrxHeader::kSize || header->trxSize > channelSize_) return {};
  std::memcpy(recvBuffer_.get(), view.data(), header->trxSize);
  return {recvBuffer_.get(), header->trxSize};
}

LmIpcStatusCode LmIpclibLinkSharedMemWin::recvBlock(const LmIpclibBlock& block, StreamTable& streamTable) {
  const LmIpclibBlockHeader& header = block.header;
  // The one who is asked to open cannot be known before the answer.
  const std::uint64_t expectedPeer = header.msgType == LmIpclibMsgType::OpenAck ? 0 : header.srcStreamId;
  const auto stream = findStream(header.destStreamId, expectedPeer, streamTable);
  if (!stream) return LmIpcStatusCode::Success;  // It may have ended just now.
  bytesReceivedOnWire.fetch_add(header.blockSize, std::memory_order_relaxed);
  if (header.msgType == LmIpclibMsgType::Msg) bytesReceived.fetch_add(header.dataSize, std::memory_order_relaxed);
  const LmIpcStatusCode status = stream->recvBlock(header, block.data.data());
  if (status != LmIpcStatusCode::InvalidState) return status;
  streamTable.erase(header.destStreamId);
  return LmIpcStatusCode::Success;
}

std::shared_ptr<LmIpclibStream> LmIpclibLinkSharedMemWin::findStream(std::uint64_t destStreamId,
                                                                     std::uint64_t expectedPeer,
                                                                     StreamTable& streamTable) {
  auto place = streamTable.find(destStreamId);
  if (place == streamTable.end()) {
    const Lock lock(m_lock);
    std::shared_ptr<LmIpclibStream> stream;
    if (destStreamId == kControlStreamId) {
      stream = controlStream;
    } else if (const auto known = streams.find(destStreamId); known != streams.end()) {
      stream = known->second;
    }
    if (!stream) return nullptr;
    place = streamTable.emplace(destStreamId, std::move(stream)).first;
  }
  const auto& stream = place->second;
  const bool isMeant = destStreamId == kControlStreamId || stream->remoteStreamId() == expectedPeer;
  return isMeant ? stream : nullptr;
}

void LmIpclibLinkSharedMemWin::awaitNextTransaction() {
  const Lock lock(m_lock);
  const bool ends = state() == State::Closed || state() == State::Error || state() == State::ShuttingDown;
  if (!recvWait || ends) return;
  recvWait->start();
  recvChannel_->setDataConsumed();
}

platform::EventHandle LmIpclibLinkSharedMemWin::getRecvEvent() const { return recvChannel_->getDataReadyEvent(); }

void LmIpclibLinkSharedMemWin::stop(Lock& lock) {
  const LinkTrace trace(TraceChannel::Link, *this);
  if (state() == State::Error) {
    stopAtOnce(lock);
  } else if (state() == State::Connected) {
    stopInOrder(lock);
  }
}

void LmIpclibLinkSharedMemWin::beginToStop(State state) {
  setState(state);
  if (const auto tells = std::exchange(onStopping, nullptr)) tells(*this);
}

void LmIpclibLinkSharedMemWin::stopAtOnce(Lock& lock) {
  beginToStop(State::ShuttingDown);
  Messages unsent;
  unsent.swap(deferredSends);
  const auto left = streams;
  stopRecvWorker(lock);
  stopWorkers();
  complete(unsent, LmIpcStatusCode::StreamClosed);
  if (left.empty()) {
    lock.lock();
    shutdownLinkWithCheck(lock);
  } else {
    // With the last one that leaves, the link ends.
    for (const auto& [id, stream] : left) stream->shutdown();
  }
}

void LmIpclibLinkSharedMemWin::stopInOrder(Lock& lock) {
  beginToStop(State::Closing);
  const auto left = streams;
  if (left.empty()) {
    shutdownLinkWithCheck(lock);
    return;
  }
  Messages unsent;
  // A peer that has stopped reads nothing more.
  if (stopReason == StopReason::PeerStopped) unsent.swap(deferredSends);
  lock.unlock();
  complete(unsent, LmIpcStatusCode::StreamClosed);
  for (const auto& [id, stream] : left) static_cast<void>(stream->close(std::chrono::milliseconds::max()));
}

void LmIpclibLinkSharedMemWin::stopRecvWorker(Lock& lock) {
  auto worker = std::exchange(recvWait, nullptr);
  if (worker) worker->stop();
  lock.unlock();
  worker.reset();
}

void LmIpclibLinkSharedMemWin::stopWorkers() {
  const LinkTrace trace(TraceChannel::Link, *this);
  Lock lock(m_lock);
  const auto control = std::exchange(controlStream, nullptr);
  for (const auto* wait :
       {&peerGoneWait_, &peerPipeTask_, &dataConsumedWait_, &recvWait, &peerErrorWait_, &peerStopWait_}) {
    if (*wait) (*wait)->stop();
  }
  lock.unlock();
  if (control) control->stop();
}

void LmIpclibLinkSharedMemWin::linkError() {
  Lock lock(m_lock);
  linkError(lock);
}

void LmIpclibLinkSharedMemWin::linkError(Lock& lock) {
  const LinkTrace trace(TraceChannel::Link, *this);
  if (state() == State::Closed || state() == State::ShuttingDown) return;
  if (recvChannel_ && stopReason == StopReason::None) recvChannel_->setError();
  setState(State::Error);
  stop(lock);
}

void LmIpclibLinkSharedMemWin::linkStop(Lock&) {
  const LinkTrace trace(TraceChannel::Link, *this);
  if (recvChannel_ && stopReason == StopReason::None) recvChannel_->setStop();
}

platform::PipeHandle LmIpclibLinkSharedMemWin::getReadPipeReference() {
  const LinkTrace trace(TraceChannel::Link, *this);
  writePipe_.reset();
  readPipe_.reset();
  if (!platform::CreatePipe(readPipe_.put(), writePipe_.put(), nullptr, 0)) {
    Trace(TraceChannel::Link, "- m_state: {}, linkId: {:#x}}}, errorCode: {}", state(), linkId(),
          platform::GetLastError());
    return {};
  }
  return readPipe_.get();
}

bool LmIpclibLinkSharedMemWin::blockOnReadClientPipe() {
  LinkTrace trace(TraceChannel::Link, *this);
  if (!isUsable(peerPipe_)) {
    trace.ends(LmIpcStatusCode::Unexpected);
    return false;
  }
  std::byte nothing{};
  platform::DWORD read = 0;
  const bool done = platform::ReadFile(peerPipe_->get(), &nothing, 1, &read, nullptr);
  Trace(TraceChannel::Link, "- m_state: {}, linkId: {:#x}}}, errorCode: {}", state(), linkId(),
        done ? 0 : platform::GetLastError());
  return true;
}

}  // namespace quill::ipc
