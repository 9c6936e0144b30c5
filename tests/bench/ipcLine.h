// A way between two processes, as the benchmark of conversations drives it: the near side measures, the far side
// answers what asks for an answer.
//
// Life: made before the two processes part, so that both have what they share; then each lives its own side of it.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "tests/support/meeting.h"

namespace bench {

inline constexpr std::size_t kSmall = 128;                   // Bytes of a message of a round trip, and of every answer.
inline constexpr std::size_t kLarge = std::size_t{1} << 20;  // Bytes; no message is larger.

// Messages of `size` bytes, of which the first says whether the far side answers. Nobody changes them.
[[nodiscard]] std::span<const std::byte> Unanswered(std::size_t size);
[[nodiscard]] std::span<const std::byte> Answered(std::size_t size);
[[nodiscard]] bool AsksForAnswer(std::byte first) noexcept;

// Ends the program with a line that says what has failed.
[[noreturn]] void Fail(const std::string& what);

class IpcLine {
 public:
  IpcLine() = default;
  IpcLine(const IpcLine&) = delete;
  IpcLine& operator=(const IpcLine&) = delete;
  virtual ~IpcLine() = default;

  // The far side, until the process is killed.
  virtual void Serve() = 0;
  // The near side; once, ahead of what follows.
  virtual void Open() = 0;
  // There and back, `count` times one after the other, with kSmall bytes.
  virtual void GoRound(unsigned count) = 0;
  // So many messages there, as fast as they go. Returns when the far side has had the last one.
  virtual void GoOneWay(unsigned count, std::size_t size) = 0;
};

// A line whose calls sleep until they are done.
class BlockingLine : public IpcLine {
 public:
  void Serve() final;
  void GoRound(unsigned count) final;
  void GoOneWay(unsigned count, std::size_t size) final;

 protected:
  virtual void OpenFar() {}
  virtual void Send(std::span<const std::byte> message) = 0;
  // The first byte of the next message, once all of it is there.
  [[nodiscard]] virtual std::byte Receive() = 0;
};

// A line that tells of messages by a callback. The next round trip begins within the callback of the last. Whoever
// sends one way has no more than some messages under way, as the other libraries keep it by themselves.
class CallbackLine : public IpcLine {
 public:
  void GoRound(unsigned count) final;
  void GoOneWay(unsigned count, std::size_t size) final;

 protected:
  // Waits for nobody. The message stays as it is.
  virtual void Put(std::span<const std::byte> message) = 0;
  // To be called once for each message, when it has been handed to the other side.
  void HearSent();
  // To be called for each message that has come, whole, by one thread at a time; on the near and on the far side.
  void HearAnswer();
  void HearMessage(std::byte first) {
    if (AsksForAnswer(first)) Send(Unanswered(kSmall));
  }

 private:
  void Send(std::span<const std::byte> message);
  void SendWhenThereIsRoom(std::span<const std::byte> message);

  std::atomic<unsigned> roundsLeft_{0};
  support::Signal done_;
  std::atomic<unsigned> underWay_{0};
  std::atomic<bool> waits_{false};
  support::Signal room_;
};

using NewLine = std::unique_ptr<IpcLine> (*)();

}  // namespace bench
