#include "tests/bench/ipcLine.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bench {
namespace {

constexpr unsigned kMostUnderWay = 4096;

constexpr std::byte kTake{'t'};
constexpr std::byte kAnswer{'a'};

std::vector<std::byte> LargeMessage(std::byte first) {
  std::vector<std::byte> message(kLarge, std::byte{'.'});
  message.front() = first;
  return message;
}

}  // namespace

std::span<const std::byte> Unanswered(std::size_t size) {
  static const std::vector<std::byte> message = LargeMessage(kTake);
  return std::span(message).first(size);
}

std::span<const std::byte> Answered(std::size_t size) {
  static const std::vector<std::byte> message = LargeMessage(kAnswer);
  return std::span(message).first(size);
}

bool AsksForAnswer(std::byte first) noexcept { return first == kAnswer; }

void Fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::_Exit(1);
}

void BlockingLine::Serve() {
  OpenFar();
  while (true) {
    if (AsksForAnswer(Receive())) Send(Unanswered(kSmall));
  }
}

void BlockingLine::GoRound(unsigned count) {
  for (; count != 0; --count) {
    Send(Answered(kSmall));
    static_cast<void>(Receive());
  }
}

void BlockingLine::GoOneWay(unsigned count, std::size_t size) {
  for (; count > 1; --count) Send(Unanswered(size));
  Send(Answered(size));
  static_cast<void>(Receive());
}

void CallbackLine::GoRound(unsigned count) {
  roundsLeft_ = count;
  Send(Answered(kSmall));
  done_.Await();
}

void CallbackLine::GoOneWay(unsigned count, std::size_t size) {
  roundsLeft_ = 1;
  for (; count > 1; --count) SendWhenThereIsRoom(Unanswered(size));
  SendWhenThereIsRoom(Answered(size));
  done_.Await();
}

void CallbackLine::Send(std::span<const std::byte> message) {
  ++underWay_;
  Put(message);
}

void CallbackLine::SendWhenThereIsRoom(std::span<const std::byte> message) {
  if (underWay_ >= kMostUnderWay) {
    waits_ = true;
    // It may have been half as many just before.
    if (underWay_ > kMostUnderWay / 2 || !waits_.exchange(false)) room_.Await();
  }
  Send(message);
}

void CallbackLine::HearSent() {
  if (--underWay_ == kMostUnderWay / 2 && waits_.exchange(false)) room_.Give();
}

void CallbackLine::HearAnswer() {
  if (--roundsLeft_ == 0) {
    done_.Give();
  } else {
    Send(Answered(kSmall));
  }
}

}  // namespace bench
