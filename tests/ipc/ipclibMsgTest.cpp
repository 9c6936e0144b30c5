#include "lib/ipc/ipclib/ipclibMsg.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "lib/ipc/ipclib/idCounter.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/lineSink.h"
#include "tests/ipc/failingMalloc.h"
#include "tests/ipc/rawTransaction.h"
#include "tests/support/process.h"

namespace {

using namespace quill::ipc;
using ipcTests::kDestination;
using ipcTests::kSource;
using testing::ElementsAre;

const LmIpclibMsg::OnComplete kIgnore = [](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {};

const std::byte* Bytes(std::string_view text) { return reinterpret_cast<const std::byte*>(text.data()); }

std::shared_ptr<LmIpclibMsg> Incoming(std::uint32_t size) {
  return std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Msg, 0, LmIpcStatusCode::Success, kSource, kDestination, size);
}

std::shared_ptr<LmIpclibMsg> Borrowing(std::string_view text, LmIpclibMsg::OnComplete onComplete = kIgnore,
                                       std::uint32_t flags = 0, std::shared_ptr<LmIpclibStream> stream = nullptr) {
  return std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Msg, flags, LmIpcStatusCode::Success, std::move(stream),
                                       kSource, kDestination, static_cast<std::uint32_t>(text.size()), Bytes(text),
                                       std::move(onComplete));
}

std::string Payload(const LmIpclibMsg& message) {
  return {reinterpret_cast<const char*>(message.data()), message.size()};
}

TEST(Message, KeepsWhatItIsMadeOf) {
  const LmIpclibMsg message(LmIpclibMsgType::Open, 0xABCD0000, LmIpcStatusCode::NotFound, kSource, kDestination, 9,
                            kIgnore);
  EXPECT_EQ(message.msgType(), LmIpclibMsgType::Open);
  EXPECT_EQ(message.flags(), 0xABCD0000u);
  EXPECT_EQ(message.status(), LmIpcStatusCode::NotFound);
  EXPECT_EQ(message.srcStreamId(), kSource);
  EXPECT_EQ(message.destStreamId(), kDestination);
  EXPECT_EQ(message.size(), 9u);
  EXPECT_EQ(message.remaining(), 9u);
  EXPECT_EQ(message.data(), nullptr);
  EXPECT_EQ(message.stream(), nullptr);
  EXPECT_EQ(message.completionStatus(), LmIpcStatusCode{65535});
}

std::shared_ptr<LmIpclibStream> NewStream() {
  return std::make_shared<LmIpclibStream>(platform::GUID{}, u"", StreamFlags(),
                                          std::weak_ptr<quill::task::TaskExecutor>(), LmIpclibStream::RecvCallback());
}

TEST(Message, HasTheStreamThatItIsGiven) {
  const auto stream = NewStream();
  EXPECT_EQ(Borrowing("x", kIgnore, 0, stream)->stream(), stream);
  const auto message = Incoming(1);
  message->setStream(stream);
  EXPECT_EQ(message->stream(), stream);
}

TEST(MessageAppend, ToABorrowingMessageReturnsInvalidStateAndChangesNothing) {
  const std::string text = "borrowed";
  const auto message = Borrowing(text);
  EXPECT_EQ(message->appendData(1, Bytes("x")), LmIpcStatusCode::InvalidState);
  EXPECT_EQ(message->remaining(), 8u);
  EXPECT_EQ(message->data(), Bytes(text));
  EXPECT_EQ(Payload(*message), "borrowed");
}

TEST(MessageAppend, OfMoreThanRemainsReturnsBufferTooSmallAndTakesNothing) {
  const auto message = Incoming(5);
  EXPECT_EQ(message->appendData(6, Bytes("toolong")), LmIpcStatusCode::BufferTooSmall);
  EXPECT_EQ(message->remaining(), 5u);
  EXPECT_EQ(message->data(), nullptr);
  EXPECT_EQ(message->appendData(3, Bytes("abc")), LmIpcStatusCode::Success);
  EXPECT_EQ(message->appendData(3, Bytes("xyz")), LmIpcStatusCode::BufferTooSmall);
  EXPECT_EQ(message->remaining(), 2u);
}

TEST(MessageAppend, OfExactlyWhatRemainsLeavesNothing) {
  const auto message = Incoming(5);
  EXPECT_EQ(message->appendData(3, Bytes("hel")), LmIpcStatusCode::Success);
  EXPECT_EQ(message->appendData(2, Bytes("lo")), LmIpcStatusCode::Success);
  EXPECT_EQ(message->remaining(), 0u);
  EXPECT_EQ(Payload(*message), "hello");
  EXPECT_EQ(message->appendData(1, Bytes("x")), LmIpcStatusCode::BufferTooSmall);
}

TEST(MessageAppend, OfNothingGetsTheRoom) {
  for (const std::uint32_t size : {0U, 5U}) {
    const auto message = Incoming(size);
    EXPECT_EQ(message->appendData(0, nullptr), LmIpcStatusCode::Success);
    EXPECT_NE(message->data(), nullptr);
    EXPECT_EQ(message->remaining(), size);
  }
}

TEST(MessageAppend, ThrowsWithoutRoomAndLeavesTheMessageAsItWas) {
  const auto message = Incoming(123'457);
  {
    const ipcTests::NoRoomFor refused(123'457);
    EXPECT_THROW(message->appendData(1, Bytes("x")), std::bad_alloc);
  }
  EXPECT_EQ(message->data(), nullptr);
  EXPECT_EQ(message->remaining(), 123'457u);
  EXPECT_EQ(message->appendData(1, Bytes("x")), LmIpcStatusCode::Success);
  EXPECT_EQ(message->remaining(), 123'456u);
}

TEST(Message, ThatBorrowsDoesNotFreeItsData) {
  auto* const text = static_cast<std::byte*>(std::malloc(3));
  ASSERT_NE(text, nullptr);
  std::fill_n(text, 3, std::byte{7});
  {
    const LmIpclibMsg message(LmIpclibMsgType::Msg, 0, LmIpcStatusCode::Success, nullptr, kSource, kDestination, 3,
                              text, kIgnore);
  }
  EXPECT_EQ(std::count(text, text + 3, std::byte{7}), 3);
  std::free(text);
}

TEST(MessageSendComplete, TellsTheCallbackWithTheMessageItself) {
  LmIpcStatusCode told{77};
  std::shared_ptr<LmIpclibMsg> complete;
  const auto message = Borrowing("x", [&](LmIpcStatusCode status, std::shared_ptr<LmIpclibMsg> which) {
    told = status;
    EXPECT_EQ(which->completionStatus(), LmIpclibMsg::kNotComplete);
    complete = std::move(which);
  });
  message->sendComplete(LmIpcStatusCode::StreamClosed);
  EXPECT_EQ(told, LmIpcStatusCode::StreamClosed);
  EXPECT_EQ(complete, message);
  EXPECT_EQ(message->completionStatus(), LmIpcStatusCode::StreamClosed);
}

TEST(MessageSendComplete, WithoutACallbackThrows) {
  const auto message = Borrowing("x", nullptr);
  EXPECT_THROW(message->sendComplete(LmIpcStatusCode::Success), std::bad_function_call);
  EXPECT_EQ(message->completionStatus(), LmIpclibMsg::kNotComplete);
}

TEST(MessageSendComplete, LetsTheCallbackDropTheLastReference) {
  std::shared_ptr<LmIpclibMsg> message;
  message = Borrowing("x", [&](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) { message.reset(); });
  std::weak_ptr<LmIpclibMsg> gone = message;
  message->sendComplete(LmIpcStatusCode::Success);
  EXPECT_TRUE(gone.expired());
}

TEST(MessagePrepareSend, MakesAllOfItRemain) {
  const LmIpclibMsg::OnComplete none = kIgnore;
  LmIpclibMsg message(LmIpclibMsgType::Open, 0, LmIpcStatusCode::Success, kSource, 0, 5, none);
  EXPECT_EQ(message.appendData(5, Bytes("hello")), LmIpcStatusCode::Success);
  EXPECT_EQ(message.remaining(), 0u);
  message.prepareSend();
  EXPECT_EQ(message.remaining(), 5u);
}

TEST(MessageTakeRemaining, GoesThroughThePayload) {
  const std::string text = "hello";
  const auto message = Borrowing(text);
  const auto first = message->takeRemaining(2);
  EXPECT_EQ(first.data(), Bytes(text));
  EXPECT_EQ(first.size(), 2u);
  EXPECT_EQ(message->remaining(), 3u);
  EXPECT_EQ(message->takeRemaining(100).size(), 3u);
  EXPECT_EQ(message->takeRemaining(100).size(), 0u);
}

CHILD_BODY(TellsItsFirstMessageIds) {
  const auto first = Incoming(1);
  const auto second = Borrowing("x");
  support::Say(fmt::format("{} {}", first->msgId(), second->msgId()));
  return 0;
}

TEST(MessageId, OfTheFirstMessageOfAProcessIsOne) {
  support::Process child = support::StartChild("TellsItsFirstMessageIds");
  EXPECT_EQ(child.Hear(), "1 2");
  EXPECT_EQ(child.Wait(), 0);
}

TEST(MessageId, IsNeverTwiceTheSame) {
  std::vector<std::vector<std::uint64_t>> ids(4);
  std::vector<std::thread> threads;
  for (auto& mine : ids) {
    threads.emplace_back([&mine] {
      for (int message = 0; message < 500; ++message) mine.push_back(Incoming(1)->msgId());
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<std::uint64_t> all;
  for (const auto& mine : ids) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 2000u);
  EXPECT_FALSE(all.contains(0));
}

TEST(IdCounter, SkipsZeroWhenItComesRound) {
  std::atomic<std::uint64_t> counter = std::numeric_limits<std::uint64_t>::max() - 1;
  EXPECT_EQ(drawId(counter), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(drawId(counter), 1u);
  std::atomic<std::uint32_t> small = std::numeric_limits<std::uint32_t>::max();
  EXPECT_EQ(drawId(small), 1u);
}

TEST(MessageTrace, TellsOfBirthAppendCompletionAndDeath) {
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  std::string ids;
  {
    const auto message =
        std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Open, 0, LmIpcStatusCode::Success, kSource, 0, 1, kIgnore);
    ids = fmt::format("srcStreamId: 0x5300abcd00000007, destStreamId: 0x0, msgId: {}", message->msgId());
    message->appendData(1, Bytes("x"));
    message->appendData(1, Bytes("x"));
    message->sendComplete(LmIpcStatusCode::Success);
  }
  ipcTrace->removeAllSinks();
  const auto lines = sink->Take();
  std::vector<std::string> texts;
  std::vector<std::string> functions;
  for (const auto& line : lines) {
    texts.push_back(line.text);
    functions.push_back(line.function);
    EXPECT_EQ(line.path, "lib\\ipc\\ipclib\\ipclibMsg");
    EXPECT_EQ(line.level, 6);
  }
  const std::string enter = "> " + ids;
  const std::string leave = "< " + ids + ", ";
  EXPECT_THAT(texts, ElementsAre("- " + ids, enter, leave, enter, leave, enter, leave, "- " + ids));
  EXPECT_THAT(functions, ElementsAre("LmIpclibMsg", "appendData", "appendData", "appendData", "appendData",
                                     "sendComplete", "sendComplete", "~LmIpclibMsg"));
}

TEST(MessageTrace, TellsOfAFailedAllocation) {
  const auto message = Incoming(54'321);
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  {
    const ipcTests::NoRoomFor refused(54'321);
    EXPECT_THROW(message->appendData(1, Bytes("x")), std::bad_alloc);
  }
  ipcTrace->removeAllSinks();
  const auto texts = sink->TakeTexts();
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_TRUE(texts[1].starts_with("< srcStreamId: "));
  EXPECT_TRUE(texts[1].ends_with(", "));
}

}  // namespace
