#include "tests/support/standInServiceLink.h"

#include <utility>

namespace standIn {
namespace {

// The client stores these, and gives them to nobody.
constexpr std::int32_t kLinkValue = 7;
constexpr std::int64_t kOwnLinkId = 0x4C'5E1CE5'00000001;
constexpr std::int32_t kPeerValue = 9;
constexpr std::uint32_t kNoType = 7;

}  // namespace

ServedLink::ServedLink(const Options& options, const Surroundings& surroundings, const support::ConnectRequest& request)
    : options_(options),
      surroundings_(surroundings),
      clientLink_(static_cast<std::uint64_t>(request.linkId)),
      toClient_(options.channelSize),
      fromClient_(options.channelSize),
      client_(request),
      posted_(NewEvent()),
      streams_(options, surroundings.lines, outbox_, surroundings.commandCame),
      firstStream_(streams_.AddFirst(static_cast<std::uint64_t>(request.streamId))),
      thread_([this] { Run(); }) {}

ServedLink::~ServedLink() {
  {
    const std::lock_guard guard(lock_);
    ended_ = true;
  }
  platform::SetEvent(posted_.get());
  thread_.join();
}

void ServedLink::Describe(support::ConnectReply& reply) const {
  reply.channelSize = static_cast<std::int32_t>(options_.channelSize);
  reply.linkValue = kLinkValue;
  reply.remoteLinkValue = kOwnLinkId;
  reply.receive = toClient_.Handles();
  reply.send = fromClient_.Handles();
  reply.peerValue = kPeerValue;
  reply.remoteStreamId = static_cast<std::int64_t>(firstStream_);
}

void ServedLink::Post(Order order) {
  {
    const std::lock_guard guard(lock_);
    orders_.push_back(std::move(order));
  }
  platform::SetEvent(posted_.get());
}

bool ServedLink::HasEnded() {
  const std::lock_guard guard(lock_);
  return ended_;
}

void ServedLink::Run() {
  if (!options_.holdFirstConsumed) ClientMaySend();
  while (!HasEnded()) Wait();
  surroundings_.linkEnded();
}

void ServedLink::Wait() {
  struct Reaction {
    platform::WaitableHandle handle;
    std::function<void()> act;
  };
  // In this order: what the client still sent before it went comes ahead of the news that it has gone.
  std::vector<Reaction> reactions{{posted_.get(), [this] { CarryOutPosted(); }}};
  if (!isDeaf_) {
    reactions.push_back({toClient_.dataConsumed.get(), [this] { MayWrite(); }});
    reactions.push_back({fromClient_.dataReady.get(), [this] { TakeIn(); }});
    reactions.push_back({toClient_.error.get(), [this] { End("failed link " + Hex(clientLink_)); }});
    reactions.push_back({toClient_.stop.get(), [this] { End("closed link " + Hex(clientLink_)); }});
  }
  if (client_.Gone().value() != 0) {
    reactions.push_back({client_.Gone(), [this] { End("client gone link " + Hex(clientLink_)); }});
  }
  std::vector<platform::WaitableHandle> handles;
  for (const Reaction& reaction : reactions) handles.push_back(reaction.handle);
  const auto count = static_cast<platform::DWORD>(handles.size());
  const platform::DWORD which =
      platform::WaitForMultipleObjects(count, handles.data(), false, platform::INFINITE) - platform::WAIT_OBJECT_0;
  if (which < count) {
    reactions[which].act();
  } else {
    End("error the wait failed with " + std::to_string(platform::GetLastError()));
  }
}

void ServedLink::CarryOutPosted() {
  std::deque<Order> orders;
  {
    const std::lock_guard guard(lock_);
    orders.swap(orders_);
  }
  for (const Order& order : orders) CarryOut(order);
  WriteWhatWaits();
}

void ServedLink::CarryOut(const Order& order) {
  switch (order.deed) {
    case Deed::WrongChecksum:
    case Deed::WrongSequence:
    case Deed::NoBlocks:
    case Deed::UnknownType: wrongTransactions_.push_back(order.deed); break;
    case Deed::Stop: platform::SetEvent(fromClient_.stop.get()); break;
    case Deed::Error: platform::SetEvent(fromClient_.error.get()); break;
    case Deed::Deafen: isDeaf_ = true; break;
    case Deed::Die: Die(); break;
    case Deed::Consume: ClientMaySend(); break;
    case Deed::AnswerClose: streams_.AnswerCloses(); break;
    case Deed::Open: streams_.Open(order.text); break;
    case Deed::Send: streams_.Send(order.text); break;
    case Deed::Close: streams_.Close(); break;
    case Deed::Shutdown: streams_.Shutdown(); break;
  }
}

void ServedLink::ClientMaySend() const { platform::SetEvent(fromClient_.dataConsumed.get()); }

// The client has taken the last transaction; or, the first time, it has come up.
void ServedLink::MayWrite() {
  mayWrite_ = true;
  if (!std::exchange(isUp_, true)) {
    surroundings_.lines.Print("connected link " + Hex(clientLink_));
    if (options_.dieWhen == DieWhen::AfterAnswer) return Die();
    for (const Order& order : options_.onceConnected) CarryOut(order);
  }
  WriteWhatWaits();
}

void ServedLink::TakeIn() {
  const std::vector<std::byte> copy = fromClient_.Copy();
  if (options_.dieWhen == DieWhen::InTransaction) return Die();
  auto decoded = Decode(copy, ++received_);
  std::string fault;
  if (auto* const why = std::get_if<std::string>(&decoded)) {
    fault = *why;
  } else {
    auto& transaction = std::get<Transaction>(decoded);
    if (options_.printBlocks) {
      surroundings_.lines.Print("transaction " + std::to_string(transaction.sequence) + " blocks " +
                                std::to_string(transaction.blocks.size()));
    }
    for (Block& block : transaction.blocks) {
      if (options_.printBlocks) {
        surroundings_.lines.Print(std::string("block ") + NameOf(block.type) + " bytes " +
                                  std::to_string(block.data.size()) + (block.first ? " first" : "") +
                                  (block.last ? " last" : ""));
      }
      fault = streams_.Take(std::move(block));
      if (!fault.empty()) break;
    }
  }
  if (!fault.empty()) {
    platform::SetEvent(fromClient_.error.get());
    return End("error link " + Hex(clientLink_) + ": " + fault);
  }
  ClientMaySend();
  WriteWhatWaits();
}

void ServedLink::WriteWhatWaits() {
  if (!mayWrite_ || (wrongTransactions_.empty() && outbox_.IsEmpty())) return;
  mayWrite_ = false;
  ++sent_;
  if (wrongTransactions_.empty()) {
    toClient_.Write(Encode(outbox_.Take(options_.channelSize, sent_)));
  } else {
    const Deed deed = wrongTransactions_.front();
    wrongTransactions_.pop_front();
    toClient_.Write(Wrong(deed));
  }
  platform::SetEvent(toClient_.dataReady.get());
}

// A transaction as it should be, cut to the channel's size, but for one thing.
std::vector<std::byte> ServedLink::Wrong(Deed deed) {
  Outbox greetings;
  greetings.Add(streams_.Greeting());
  greetings.Add(streams_.Greeting());
  std::vector<std::byte> bytes = Encode(greetings.Take(options_.channelSize, sent_));
  if (deed == Deed::WrongChecksum) bytes[kChecksumOffset] ^= std::byte{1};
  if (deed == Deed::WrongSequence) Overwrite(bytes, kSequenceOffset, static_cast<std::uint32_t>(sent_ + 1));
  if (deed == Deed::NoBlocks) Overwrite(bytes, kCountOffset, 0);
  if (deed == Deed::UnknownType) Overwrite(bytes, kFirstTypeOffset, kNoType);
  return bytes;
}

void ServedLink::End(const std::string& why) {
  {
    const std::lock_guard guard(lock_);
    ended_ = true;
  }
  surroundings_.lines.Print(why);
}

void ServedLink::Die() {
  {
    const std::lock_guard guard(lock_);
    ended_ = true;
  }
  surroundings_.die();
}

}  // namespace standIn
