#include "tests/support/standInServiceStreams.h"

#include <algorithm>
#include <atomic>
#include <iterator>

#include "tests/support/machine.h"
#include "tests/support/standInServiceCommand.h"

namespace standIn {
namespace {

// Ids that no client uses, over all links of this process.
std::uint64_t NewStreamId() {
  static std::atomic<std::uint32_t> last = 0;
  return 0x53'5E1CE5'00000000 + ++last;
}

}  // namespace

std::uint64_t StreamTable::AddFirst(std::uint64_t remote) { return Add(remote, State::Connected); }

std::uint64_t StreamTable::Add(std::uint64_t remote, State state) {
  const std::uint64_t id = NewStreamId();
  streams_.emplace(id, Stream{remote, state});
  return id;
}

std::string StreamTable::Take(Block block) {
  const auto found = streams_.find(block.destination);
  if (block.destination != 0 && found == streams_.end()) {
    PrintStray({block.type, block.status, block.source, block.destination, {}});
    return {};
  }
  Stream& stream = block.destination == 0 ? control_ : found->second;
  if (block.first == stream.partial.has_value()) return "a message that begins within another, or does not begin";
  if (block.first) {
    stream.partial = {block.type, block.status, block.source, block.destination, {}};
    stream.totalSize = block.totalSize;
  }
  Message& partial = *stream.partial;
  if (partial.type != block.type || partial.source != block.source) return "parts of a message that differ";
  partial.data += block.data;
  if (partial.data.size() > stream.totalSize) return "a message longer than it said";
  if (!block.last) return {};
  if (partial.data.size() < stream.totalSize) return "a message shorter than it said";
  const Message message = std::move(partial);
  stream.partial.reset();
  return Complete(message);
}

std::string StreamTable::Complete(const Message& message) {
  if (message.type == Type::Open) return TakeOpen(message);
  const auto stream = streams_.find(message.destination);
  const bool isAnswer = message.type == Type::OpenAck;
  if (stream == streams_.end() || (stream->second.state == State::Opening) != isAnswer ||
      (!isAnswer && stream->second.remote != message.source)) {
    PrintStray(message);
    return {};
  }
  switch (message.type) {
    case Type::OpenAck: TakeOpenAck(stream, message); break;
    case Type::Close: TakeClose(stream); break;
    case Type::CloseAck: TakeCloseAck(stream); break;
    case Type::Shutdown:
      lines_.Print("shutdown stream " + Hex(stream->first));
      streams_.erase(stream);
      break;
    default:
      if (stream->second.state == State::RemoteClosed) return "a message behind a Close";
      TakeMessage(message);
  }
  return {};
}

std::string StreamTable::TakeOpen(const Message& message) {
  const std::string& data = message.data;
  const std::size_t length = data.size() < 4 ? 0 : Number32(data, 0);
  if (length < 2 || length % 2 != 0 || length != data.size() - 4) return "an Open without a name";
  const std::u16string name = FromLittleEndian(std::string_view(data).substr(4));
  const bool refused = options_.openStatus != 0;
  lines_.Print((refused ? "refused open " : "open ") + Hex(message.source) + " stream " + Escaped(name));
  const auto stream = streams_.find(Add(message.source, State::Connected));
  Say(Type::OpenAck, stream, options_.openStatus);
  if (refused) streams_.erase(stream);
  return {};
}

void StreamTable::TakeOpenAck(const Place& stream, const Message& message) {
  lines_.Print((message.status == 0 ? "accepted stream " : "refused stream ") + Hex(stream->first) +
               (message.status == 0 ? "" : " status " + std::to_string(message.status)));
  if (message.status != 0) {
    streams_.erase(stream);
    return;
  }
  stream->second.remote = message.source;
  stream->second.state = State::Connected;
}

void StreamTable::TakeClose(const Place& stream) {
  lines_.Print("close stream " + Hex(stream->first));
  if (stream->second.state == State::LocalClosed) {  // Both at once: that is the answer as well.
    streams_.erase(stream);
    return;
  }
  stream->second.state = State::RemoteClosed;
  if (options_.closeAnswer == CloseAnswer::AtOnce) AnswerCloses();
}

void StreamTable::AnswerCloses() {
  for (auto stream = streams_.begin(); stream != streams_.end();) {
    const auto next = std::next(stream);
    if (stream->second.state == State::RemoteClosed) {
      Say(Type::CloseAck, stream);
      streams_.erase(stream);
    }
    stream = next;
  }
}

void StreamTable::TakeCloseAck(const Place& stream) {
  if (stream->second.state != State::LocalClosed) {
    PrintStray({Type::CloseAck, 0, stream->second.remote, stream->first, {}});
    return;
  }
  lines_.Print("close answered stream " + Hex(stream->first));
  streams_.erase(stream);
}

void StreamTable::TakeMessage(const Message& message) {
  lines_.Print("message stream " + Hex(message.destination) + " bytes " + std::to_string(message.data.size()) +
               (options_.printBytes ? " " + HexBytes(message.data) : ""));
  const auto command = DecodeCommand(message.data);
  if (const auto* why = std::get_if<std::string>(&command)) {
    lines_.Print("no command: " + *why);
    return;
  }
  lines_.Print(Described(std::get<Command>(command)));
  commandCame_();
}

void StreamTable::PrintStray(const Message& message) {
  lines_.Print(std::string("stray ") + NameOf(message.type) + " from " + Hex(message.source) + " to " +
               Hex(message.destination));
}

void StreamTable::Open(const std::u16string& name) {
  const std::string text = ToLittleEndian(name);
  Say(Type::Open, streams_.find(Add(0, State::Opening)), 0, Bytes32(static_cast<std::uint32_t>(text.size())) + text);
}

void StreamTable::Send(const std::u16string& text) {
  if (const auto stream = Newest(); stream != streams_.end()) Say(Type::Msg, stream, 0, support::Narrow(text));
}

void StreamTable::Close() {
  const auto stream = Newest();
  if (stream == streams_.end()) return;
  Say(Type::Close, stream);
  stream->second.state = State::LocalClosed;
}

void StreamTable::Shutdown() {
  const auto stream = Newest();
  if (stream == streams_.end()) return;
  Say(Type::Shutdown, stream);
  streams_.erase(stream);
}

Message StreamTable::Greeting() const {
  const auto newest = streams_.rbegin();
  if (newest == streams_.rend()) return {.type = Type::Msg, .data = "hello"};
  return {.type = Type::Msg, .source = newest->first, .destination = newest->second.remote, .data = "hello"};
}

StreamTable::Place StreamTable::Newest() {
  const auto newest = std::find_if(streams_.rbegin(), streams_.rend(),
                                   [](const auto& stream) { return stream.second.state == State::Connected; });
  return newest == streams_.rend() ? streams_.end() : std::prev(newest.base());
}

void StreamTable::Say(Type type, const Place& stream, std::uint32_t status, const std::string& data) {
  outbox_.Add({type, status, stream->first, stream->second.remote, data});
}

}  // namespace standIn
