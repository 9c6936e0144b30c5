// A service of this process, and clients of it: one made of the program's own library, and one that writes bytes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "tests/streams/openLink.h"
#include "tests/support/meeting.h"
#include "tests/support/standInServiceServer.h"
#include "tests/task/taskSupport.h"

namespace service {

using namespace quill::ipc;
using standIn::Server;
using streams::OpenLink;
using Status = LmIpcStatusCode;

inline constexpr auto kNoLimit = std::chrono::milliseconds::max();

// What the service prints, line by line.
class Printed {
 public:
  void Put(const std::string& line) {
    const std::lock_guard guard(lock_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  // Fails when nothing is printed for a minute.
  [[nodiscard]] std::string Next() {
    std::unique_lock guard(lock_);
    if (!changed_.wait_for(guard, std::chrono::minutes(1), [this] { return !lines_.empty(); })) {
      ADD_FAILURE() << "nothing is printed";
      return {};
    }
    std::string line = std::move(lines_.front());
    lines_.pop_front();
    return line;
  }
  [[nodiscard]] bool IsEmpty() {
    const std::lock_guard guard(lock_);
    return lines_.empty();
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<std::string> lines_;
};

class Served : public testing::Test {
 protected:
  // The switches of the service.
  void Start(const std::vector<std::string>& switches = {}) {
    const auto options = standIn::ParseOptions(switches);
    ASSERT_TRUE(std::holds_alternative<standIn::Options>(options)) << std::get<std::string>(options);
    server.emplace(std::get<standIn::Options>(options), lines, [this] { printed.Put("died"); });
  }
  void Order(std::string_view line) {
    const auto order = standIn::ParseOrder(line);
    ASSERT_TRUE(order);
    server->CarryOut(*order);
  }
  [[nodiscard]] std::string Next() { return printed.Next(); }

  Printed printed;
  standIn::Lines lines{[this](const std::string& line) { printed.Put(line); }};
  std::optional<Server> server;
};

inline support::ConnectRequest RequestOf(std::uint64_t linkId, std::uint64_t streamId) {
  support::ConnectRequest request;
  request.clientVersion = 1;
  request.linkId = static_cast<std::int64_t>(linkId);
  request.streamId = static_cast<std::int64_t>(streamId);
  request.streamName = u"talk";
  request.channelSizeHint = 0x10000;
  return request;
}

// What a stream's user hears.
class Heard {
 public:
  [[nodiscard]] LmIpclibStream::RecvCallback Callback() {
    return [this](Status, const std::shared_ptr<LmIpclibMsg>& message) {
      if (message->size() != 0) texts.push_back(streams::TextOf(*message));
      (message->size() == 0 ? end : one).Give();
    };
  }

  support::Signal one;
  support::Signal end;
  std::vector<std::string> texts;
};

// A link of the program's own library with one stream.
class LibraryClient {
 public:
  explicit LibraryClient(Server& server) {
    stream = std::make_shared<LmIpclibStream>(streams::kEndpoint, u"talk", StreamFlags(), 0, 0, executor.Share(), link);
    EXPECT_EQ(link->connecting(), Status::Success);
    EXPECT_EQ(link->addStream(stream), Status::Success);
    const auto reply = server.Connect(RequestOf(link->linkId(), stream->streamId()));
    EXPECT_EQ(reply.connectStatus, 0);
    stream->setRemote(static_cast<std::uint32_t>(reply.linkValue), static_cast<std::uint64_t>(reply.remoteStreamId),
                      {});
    EXPECT_EQ(stream->accept({}, heard.Callback()), Status::Success);
    Attach(reply);
    unsigned errorCode = 0;
    EXPECT_EQ(link->start(executor.Share(), errorCode), Status::Success);
  }
  LibraryClient(const LibraryClient&) = delete;
  LibraryClient& operator=(const LibraryClient&) = delete;
  ~LibraryClient() {
    link->shutdown();
    AwaitClosed();
  }

  void AwaitClosed() {
    if (!std::exchange(closedAwaited_, true)) closed_.Await();
  }
  // Completions go to `completed`.
  void Send(std::string text) {
    const auto kept = std::make_shared<const std::string>(std::move(text));
    EXPECT_EQ(stream
                  ->send({}, static_cast<std::uint32_t>(kept->size()), kept->data(),
                         [this, kept](Status status, const std::shared_ptr<LmIpclibMsg>&) {
                           if (status == Status::Success) sent.Give();
                           if (status == Status::StreamClosed) givenUp.Give();
                         })
                  .status(),
              Status::Success);
  }
  // Another stream on the same link.
  [[nodiscard]] std::shared_ptr<LmIpclibStream> NewStream(std::u16string name, Heard& hears) const {
    return std::make_shared<LmIpclibStream>(streams::kEndpoint, std::move(name), StreamFlags(), executor.Share(),
                                            hears.Callback());
  }

  // Ahead of the executor, whose end waits for the callbacks that reach these.
  support::Signal sent;
  support::Signal givenUp;
  Heard heard;

 private:
  support::Signal closed_;

 public:
  task::Executor executor;
  std::shared_ptr<OpenLink> link =
      std::make_shared<OpenLink>([](LmIpclibLink&) {}, [this](LmIpclibLink&) { closed_.Give(); });
  std::shared_ptr<LmIpclibStream> stream;

 private:
  void Attach(const support::ConnectReply& reply) const {
    LmIpclibLinkChannelResourceWin receive(false);
    LmIpclibLinkChannelResourceWin send(false);
    Fill(receive, reply.receive);
    Fill(send, reply.send);
    unsigned errorCode = 0;
    EXPECT_EQ(
        link->attach(static_cast<std::uint32_t>(reply.linkValue), static_cast<std::uint64_t>(reply.remoteLinkValue), 0,
                     static_cast<std::uint32_t>(reply.channelSize), receive, send, platform::GetCurrentProcess(),
                     static_cast<std::uint32_t>(reply.peerValue), errorCode),
        Status::Success);
  }
  static void Fill(LmIpclibLinkChannelResourceWin& record, const support::ChannelHandles& handles) {
    record.mapping = handles.mapping;
    record.dataReadyEvent = handles.dataReady;
    record.dataConsumedEvent = handles.dataConsumed;
    record.errorEvent = handles.error;
    record.stopEvent = handles.stop;
  }

  bool closedAwaited_ = false;
};

// Writes bytes into the service's block, and looks at what it signals.
class RawClient {
 public:
  static constexpr std::uint64_t kLink = 0x4C00000000000001;
  static constexpr std::uint64_t kStream = 0x5300000000000007;

  explicit RawClient(Server& server, const support::ConnectRequest& request = RequestOf(kLink, kStream))
      : reply(server.Connect(request)), view_(Map(reply.send.mapping)), incoming_(Map(reply.receive.mapping)) {}

  [[nodiscard]] std::uint64_t Remote() const { return static_cast<std::uint64_t>(reply.remoteStreamId); }
  // The service may send.
  void ComeUp() const { platform::SetEvent(reply.receive.dataConsumed); }
  void Put(std::span<const std::byte> bytes) const {
    ASSERT_LE(bytes.size(), static_cast<std::size_t>(reply.channelSize));
    std::ranges::copy(bytes, static_cast<std::byte*>(view_.get()));
    platform::SetEvent(reply.send.dataReady);
  }
  // The first bytes of what the service has sent.
  [[nodiscard]] std::vector<std::byte> Incoming(std::size_t count) const {
    const auto* bytes = static_cast<const std::byte*>(incoming_.get());
    return {bytes, bytes + count};
  }
  // Waits for a minute at most.
  [[nodiscard]] static bool IsSignalled(platform::EventHandle event) {
    return platform::WaitForSingleObject(event, 60'000) == platform::WAIT_OBJECT_0;
  }
  [[nodiscard]] static bool IsSignalledNow(platform::EventHandle event) {
    return platform::WaitForSingleObject(event, 0) == platform::WAIT_OBJECT_0;
  }

  const support::ConnectReply reply;

 private:
  static platform::UniqueView Map(platform::SectionHandle section) {
    return platform::UniqueView(
        platform::MapViewOfFile(section, platform::FILE_MAP_READ | platform::FILE_MAP_WRITE, 0, 0, 0));
  }

  const platform::UniqueView view_;
  const platform::UniqueView incoming_;
};

}  // namespace service
