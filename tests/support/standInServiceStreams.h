// The streams of one link, as the stand-in of the service keeps them: it accepts what the client opens, answers what is
// to be answered, and prints what comes in.
//
// Threading: the link's own thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "tests/support/standInServiceOptions.h"
#include "tests/support/standInServiceText.h"
#include "tests/support/standInServiceWire.h"

namespace standIn {

class StreamTable {
 public:
  // What is to be sent goes to `outbox`; `commandCame` is called for each command. Both outlive the table.
  StreamTable(const Options& options, Lines& lines, Outbox& outbox, const std::function<void()>& commandCame)
      : options_(options), lines_(lines), outbox_(outbox), commandCame_(commandCame) {}

  // The stream that came with the link itself. Returns its id here.
  std::uint64_t AddFirst(std::uint64_t remote);

  // A text tells how the client has broken the rules; the link is then of no use any more.
  [[nodiscard]] std::string Take(Block block);

  void Open(const std::u16string& name);
  // On the newest stream that is connected; do nothing when there is none.
  void Send(const std::u16string& text);
  void Close();
  void Shutdown();
  void AnswerCloses();

  // A message to the newest stream of the client, for whoever sends it in a way of its own.
  [[nodiscard]] Message Greeting() const;

 private:
  enum class State : std::uint8_t { Opening, Connected, LocalClosed, RemoteClosed };
  struct Stream {
    std::uint64_t remote = 0;
    State state = State::Connected;
    std::optional<Message> partial = std::nullopt;
    std::size_t totalSize = 0;
  };
  using Place = std::map<std::uint64_t, Stream>::iterator;

  std::uint64_t Add(std::uint64_t remote, State state);
  [[nodiscard]] Place Newest();
  void Say(Type type, const Place& stream, std::uint32_t status = 0, const std::string& data = {});
  [[nodiscard]] std::string Complete(const Message& message);
  [[nodiscard]] std::string TakeOpen(const Message& message);
  void TakeOpenAck(const Place& stream, const Message& message);
  void TakeClose(const Place& stream);
  void TakeCloseAck(const Place& stream);
  void TakeMessage(const Message& message);
  void PrintStray(const Message& message);

  const Options& options_;
  Lines& lines_;
  Outbox& outbox_;
  const std::function<void()>& commandCame_;
  std::map<std::uint64_t, Stream> streams_;
  Stream control_;  // The address 0, to which a client sends its wish for a stream.
};

}  // namespace standIn
