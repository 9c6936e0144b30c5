#include "runtime/logCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"

namespace {

using runtime::gLogLevel;
using runtime::Log;
using runtime::LogIfWanted;
using runtime::LogLastError;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class Lines : public runtime::LogReceiver {
 public:
  void Receive(const runtime::LogCall& call) override {
    lines.push_back(std::string(1, runtime::LogLevelLetter(call.level)) + " " + call.functionName + ": " + call.Text());
  }
  std::vector<std::string> lines;
};

// Receives on behalf of one test.
template <class Receiver>
class Received {
 public:
  Received() { runtime::SetLogReceiver(receiver_); }
  ~Received() {
    runtime::SetLogReceiver(nullptr);
    gLogLevel = 0;
  }
  Received(const Received&) = delete;
  Received& operator=(const Received&) = delete;
  Receiver* operator->() const { return receiver_.get(); }

 private:
  std::shared_ptr<Receiver> receiver_ = std::make_shared<Receiver>();
};

TEST(LogLevel, PrintsAsALetter) {
  std::string letters;
  for (int level = 0; level < 8; ++level) letters += runtime::LogLevelLetter(level);
  EXPECT_EQ(letters, "AEWIDTVN");
}

TEST(LogLevel, SevenPrintsAsN) { EXPECT_EQ(runtime::LogLevelLetter(7), 'N'); }

TEST(LogLevel, OfNoKindHasNoLetter) {
  EXPECT_EQ(runtime::LogLevelLetter(-1), '?');
  EXPECT_EQ(runtime::LogLevelLetter(8), '?');
}

TEST(LogCall, BearsItsNameItsLevelAndItsText) {
  const Received<Lines> received;
  Log("LmIpcClient::ConnectToStream()", 3, "StreamName=%S, StreamId=%lld.", u"name", 7LL);
  EXPECT_THAT(received->lines, ElementsAre("I LmIpcClient::ConnectToStream(): StreamName=name, StreamId=7."));
}

TEST(LogCall, WithoutTheTestGoesOutAtEveryLevel) {
  const Received<Lines> received;
  for (int level = 0; level < 8; ++level) Log("F()", level, "x");
  EXPECT_EQ(received->lines.size(), 8u);
}

TEST(LogCall, WithNobodyToReceiveItIsLost) {
  runtime::SetLogReceiver(nullptr);
  Log("F()", 1, "%d", 1);
  const Received<Lines> received;
  EXPECT_THAT(received->lines, IsEmpty());
}

TEST(LogCall, ThatCannotBeFormattedHasNoText) {
  const Received<Lines> received;
  Log("F()", 1, "%S", u"\u4E2D");
  EXPECT_THAT(received->lines, ElementsAre("E F(): "));
}

TEST(LogLastError, AppendsTheErrorsNumberAndText) {
  const Received<Lines> received;
  platform::SetLastError(platform::ERROR_ACCESS_DENIED);
  LogLastError("F()", 2, "Refused %s\n", "here");
  ASSERT_EQ(received->lines.size(), 1u);
  EXPECT_THAT(received->lines[0], StartsWith("W F(): Refused here; (5) Access "));
  EXPECT_TRUE(received->lines[0].ends_with(". "));  // As the system ends a text on one line.
}

TEST(LogLastError, OfANumberWithoutATextAppendsTheNumber) {
  const Received<Lines> received;
  platform::SetLastError(0x2FFF1234);
  LogLastError("F()", 2, "Refused");
  EXPECT_THAT(received->lines, ElementsAre("W F(): Refused; (805245492) "));
}

class Formats : public runtime::LogReceiver {
 public:
  void Receive(const runtime::LogCall& call) override { formatted += !call.Text().empty(); }
  int formatted = 0;
};

TEST(GatedLine, IsNotFormattedAtLevelOneOrAboveWithTheLevelAtZero) {
  const Received<Formats> received;
  ASSERT_EQ(gLogLevel, 0);
  for (int level = 1; level < 8; ++level) LogIfWanted("F()", level, "%d", level);
  EXPECT_EQ(received->formatted, 0);
}

TEST(GatedLine, GoesOutUpToTheLevel) {
  const Received<Lines> received;
  gLogLevel = 2;
  for (int level = 0; level < 8; ++level) LogIfWanted("F()", level, "%d", level);
  EXPECT_THAT(received->lines, ElementsAre("A F(): 0", "E F(): 1", "W F(): 2"));
}

class ThrowingReceiver : public runtime::LogReceiver {
 public:
  void Receive(const runtime::LogCall&) override {
    ++calls;
    throw std::bad_alloc();
  }
  int calls = 0;
};

TEST(LogReceiver, ThatThrowsDoesNotFailTheCaller) {
  const Received<ThrowingReceiver> received;
  Log("F()", 1, "x");
  EXPECT_EQ(received->calls, 1);
}

class LogsItself : public runtime::LogReceiver {
 public:
  void Receive(const runtime::LogCall& call) override {
    texts.push_back(call.Text());
    if (texts.size() == 1) Log("F()", 1, "inner");
  }
  std::vector<std::string> texts;
};

TEST(LogReceiver, MayLog) {
  const Received<LogsItself> received;
  Log("F()", 1, "outer");
  EXPECT_THAT(received->texts, ElementsAre("outer", "inner"));
}

class Counts : public runtime::LogReceiver {
 public:
  void Receive(const runtime::LogCall&) override { ++calls; }
  std::atomic<int> calls = 0;
};

TEST(LogReceiver, IsReachedFromEveryThread) {
  const Received<Counts> received;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int line = 0; line < 1000; ++line) Log("F()", 1, "%d", line);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(received->calls, 4000);
}

TEST(LogReceiver, MayChangeWhileOthersLog) {
  const auto first = std::make_shared<Counts>();
  const auto second = std::make_shared<Counts>();
  runtime::SetLogReceiver(first);
  std::thread thread([] {
    for (int line = 0; line < 1000; ++line) Log("F()", 1, "%d", line);
  });
  for (int change = 0; change < 1000; ++change) runtime::SetLogReceiver(change % 2 != 0 ? first : second);
  thread.join();
  runtime::SetLogReceiver(nullptr);
  EXPECT_EQ(first->calls + second->calls, 1000);
}

}  // namespace
