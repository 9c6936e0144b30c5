#include "lib/ipc/ipclib/ipclibTrace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/lineSink.h"

namespace {

using namespace quill::ipc;
using quill::log::LineSink;
using quill::log::Logger;
using testing::ElementsAre;
using testing::IsEmpty;

// Notes that it has been formatted.
struct Formatted {
  bool* noted;
};

}  // namespace

template <>
struct fmt::formatter<Formatted> : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(const Formatted& value, Context& context) const {
    *value.noted = true;
    return fmt::formatter<fmt::string_view>::format("formatted", context);
  }
};

namespace {

class IpcTrace : public testing::Test {
 protected:
  ~IpcTrace() override {
    ipcTrace->removeAllSinks();
    for (const auto& logger : Loggers()) logger->setLevel(4);
  }

  static std::vector<std::shared_ptr<Logger>> Loggers() {
    return {ipcTrace->lib(), ipcTrace->listener(), ipcTrace->link(), ipcTrace->stream(), ipcTrace->msg()};
  }
};

TEST_F(IpcTrace, HasFiveNamedChannels) {
  std::vector<std::string> names;
  for (const auto& logger : Loggers()) names.push_back(logger->name());
  EXPECT_THAT(names, ElementsAre("ipc::lib", "ipc::listener", "ipc::link", "ipc::stream", "ipc::msg"));
}

TEST_F(IpcTrace, BeginsWithoutASinkAtLevelFour) {
  for (const auto& logger : Loggers()) {
    EXPECT_EQ(logger->level(), 4);
    EXPECT_EQ(logger->effectiveLevel(), -1);
  }
}

TEST_F(IpcTrace, FormatsNothingWithoutASink) {
  bool noted = false;
  for (const auto& logger : Loggers()) logger->setLevel(7);
  Trace(TraceChannel::Msg, "{}", Formatted{&noted});
  EXPECT_FALSE(noted);
}

TEST_F(IpcTrace, FormatsNothingForASinkAtTheFirstLevel) {
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->msg()->addSink(sink);
  EXPECT_EQ(ipcTrace->msg()->effectiveLevel(), 4);
  bool noted = false;
  Trace(TraceChannel::Msg, "{}", Formatted{&noted});
  EXPECT_FALSE(noted);
  EXPECT_THAT(sink->TakeTexts(), IsEmpty());
}

TEST_F(IpcTrace, GoesToTheAttachedSink) {
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Stream, "> state: {}, streamId: {:#x}", LmIpclibState::Started,
        std::uint64_t{0x5300ABCD00000007});
  const auto lines = sink->Take();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text, "> state: Started, streamId: 0x5300abcd00000007");
  EXPECT_EQ(lines[0].level, 6);
}

TEST_F(IpcTrace, KeepsADoubledBraceAsOne) {
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Link, "- m_state: {}, linkId: {:#x}}}, errorCode: {}", 1, 0xABCu, 5);
  EXPECT_THAT(sink->TakeTexts(), ElementsAre("- m_state: 1, linkId: 0xabc}, errorCode: 5"));
}

TEST_F(IpcTrace, TellsWhereItStands) {
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Lib, "here");
  const unsigned line = __LINE__ - 1;
  const auto lines = sink->Take();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].path.ends_with("tests\\ipc\\ipclibTraceTest")) << lines[0].path;
  EXPECT_EQ(lines[0].line, line);
  EXPECT_EQ(lines[0].function, "TestBody");
}

TEST_F(IpcTrace, LongerThanTheInlineRoomIsWhole) {
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->attach(sink);
  for (const std::size_t length : {499U, 500U, 501U, 100000U}) {
    Trace(TraceChannel::Lib, "{}", std::string(length, 'x'));
    EXPECT_THAT(sink->TakeTexts(), ElementsAre(std::string(length, 'x')));
  }
}

TEST_F(IpcTrace, GoesToEverySink) {
  const auto first = std::make_shared<LineSink>();
  const auto second = std::make_shared<LineSink>();
  ipcTrace->attach(first);
  ipcTrace->attach(second);
  Trace(TraceChannel::Lib, "x");
  EXPECT_THAT(first->TakeTexts(), ElementsAre("x"));
  EXPECT_THAT(second->TakeTexts(), ElementsAre("x"));
}

TEST_F(IpcTrace, IsSilentAfterTheRemovalOfAllSinks) {
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->attach(sink);
  ipcTrace->removeAllSinks();
  for (const auto& logger : Loggers()) EXPECT_EQ(logger->effectiveLevel(), -1);
  bool noted = false;
  Trace(TraceChannel::Msg, "{}", Formatted{&noted});
  EXPECT_FALSE(noted);
  EXPECT_EQ(sink.use_count(), 1);
}

TEST_F(IpcTrace, ReachesASinkThatComesAfterTheRemoval) {
  ipcTrace->attach(std::make_shared<LineSink>());
  ipcTrace->removeAllSinks();
  const auto sink = std::make_shared<LineSink>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Msg, "again");
  EXPECT_THAT(sink->TakeTexts(), ElementsAre("again"));
}

class EndedText : public quill::log::Sink {
 public:
  void Write(std::int32_t, const quill::log::Location&, std::string_view text) override {
    ended = text.data()[text.size()] == '\0';
  }
  bool ended = false;
};

TEST_F(IpcTrace, HasANulBehindItsText) {
  const auto sink = std::make_shared<EndedText>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Lib, "{}", std::string(500, 'x'));
  EXPECT_TRUE(sink->ended);
}

class ThrowingSink : public quill::log::Sink {
 public:
  void Write(std::int32_t, const quill::log::Location&, std::string_view) override {
    ++calls;
    throw std::bad_alloc();
  }
  int calls = 0;
};

TEST_F(IpcTrace, DoesNotFailItsCallerWhenASinkThrows) {
  const auto sink = std::make_shared<ThrowingSink>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Lib, "x");
  EXPECT_EQ(sink->calls, 1);
}

class RemovesItself : public quill::log::Sink {
 public:
  void Write(std::int32_t, const quill::log::Location&, std::string_view) override {
    ++calls;
    ipcTrace->removeAllSinks();
    Trace(TraceChannel::Lib, "inner");
  }
  int calls = 0;
};

TEST_F(IpcTrace, LetsASinkRemoveItselfAndTrace) {
  const auto sink = std::make_shared<RemovesItself>();
  ipcTrace->attach(sink);
  Trace(TraceChannel::Lib, "x");
  EXPECT_EQ(sink->calls, 1);
}

TEST_F(IpcTrace, IsWrittenWhileSinksComeAndGo) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([] {
      for (int line = 0; line < 2000; ++line) Trace(TraceChannel::Msg, "line {}", line);
    });
  }
  for (int change = 0; change < 500; ++change) {
    ipcTrace->attach(std::make_shared<LineSink>());
    ipcTrace->removeAllSinks();
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ipcTrace->msg()->effectiveLevel(), -1);
}

TEST(Logger, MadeWithASinkHasItsLevelInEffect) {
  const auto sink = std::make_shared<LineSink>();
  const auto logger = quill::log::CreateLogger("name", {sink});
  EXPECT_EQ(logger->effectiveLevel(), 4);
  EXPECT_EQ(quill::log::CreateLogger("name", {})->effectiveLevel(), -1);
  logger->setLevel(2);
  EXPECT_EQ(logger->effectiveLevel(), 2);
  const quill::log::Location location{"unit", 7, "function"};
  logger->Log(3, location, "no", {});
  logger->Log(2, location, "yes", {});
  EXPECT_THAT(sink->TakeTexts(), ElementsAre("yes"));
}

TEST(StatusCode, PrintsItsName) {
  const std::vector<std::string> names = {"Success",       "Unexpected",    "NotImplemented", "OutOfMemory",
                                          "InvalidHandle", "InvalidParam",  "BufferTooSmall", "AccessDenied",
                                          "InvalidState",  "AlreadyExists", "NotFound",       "ProtocolError",
                                          "StreamClosed",  "StreamClosed",  "Abort",          "FunctionNotFound"};
  for (std::uint32_t code = 0; code < names.size(); ++code) {
    EXPECT_EQ(fmt::format("{}", LmIpcStatusCode{code}), names[code]) << code;
  }
}

TEST(StatusCode, OfATimeOutPrintsAsAClosedStream) {
  EXPECT_EQ(static_cast<std::uint32_t>(LmIpcStatusCode::TimedOut), 13u);
  EXPECT_EQ(fmt::format("{}", LmIpcStatusCode::TimedOut), "StreamClosed");
}

TEST(StatusCode, OfAnyOtherNumberPrintsAsUnknown) {
  for (const std::uint32_t code : {16U, 17U, 65535U, 0xFFFFFFFFU}) {
    EXPECT_EQ(fmt::format("{}", LmIpcStatusCode{code}), "unknown") << code;
  }
}

TEST(LibraryState, PrintsItsName) {
  EXPECT_EQ(fmt::format("{} {} {}", LmIpclibState::Init, LmIpclibState::Started, LmIpclibState::Stopping),
            "Init Started Stopping");
  EXPECT_EQ(fmt::format("{}", LmIpclibState{3}), "unknown");
}

}  // namespace
