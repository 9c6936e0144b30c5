// The stand-in of the service as a process, and what reaches it from this one through the library.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/rpc.h"
#include "tests/service/servedClients.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace service {

inline constexpr auto kPlain = StreamFlags(0x09);
inline constexpr auto kAuthenticated = StreamFlags(0x109);

inline std::string ServiceProgram() {
  return support::Beside("standInService" + std::filesystem::path(support::OwnPath()).extension().string());
}

class ServiceProcess {
 public:
  explicit ServiceProcess(const platform::GUID& endpoint, std::vector<std::string> switches = {})
      : endpoint_(standIn::GuidText(endpoint)), process_(Started(std::move(switches))) {}

  [[nodiscard]] std::string Next() { return process_.Hear(); }
  void AwaitReady() { EXPECT_EQ(Next(), "ready " + endpoint_); }
  // Past what it prints until the client's side of the link has come up.
  void AwaitConnected() {
    EXPECT_THAT(Next(), testing::StartsWith("connect stream talk procedure "));
    EXPECT_THAT(Next(), testing::StartsWith("asks version 1 "));
    EXPECT_THAT(Next(), testing::StartsWith("connected link "));
  }
  void Say(const std::string& line) { process_.Say(line); }
  void Kill() { process_.Kill(); }
  [[nodiscard]] std::uint32_t Id() const { return process_.Id(); }
  // Closes its input.
  int Wait() { return process_.Wait(); }
  [[nodiscard]] std::string RestOfOutput() { return process_.RestOfOutput(); }
  [[nodiscard]] std::string ErrorOutput() { return process_.ErrorOutput(); }

 private:
  [[nodiscard]] support::Process Started(std::vector<std::string> switches) const {
    switches.insert(switches.begin(), {"--guid", endpoint_});
    return support::Process({.program = ServiceProgram(), .arguments = std::move(switches), .environment = {}});
  }

  const std::string endpoint_;
  support::Process process_;
};

// A stream of a new link, to whoever serves the endpoint.
class Caller {
 public:
  explicit Caller(const platform::GUID& endpoint) : endpoint_(endpoint) {}
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;
  ~Caller() {
    if (link) link->shutdown();
    AwaitClosed();
  }

  Status Connect(StreamFlags flags = kPlain, std::u16string name = u"talk") {
    link = std::make_shared<OpenLink>([](LmIpclibLink&) {}, [this](LmIpclibLink&) { closed_.Give(); });
    stream = std::make_shared<LmIpclibStream>(endpoint_, std::move(name), flags, executor.Share(), heard.Callback());
    EXPECT_EQ(link->connecting(), Status::Success);
    const Status status = stream->connect(flags, nullptr, link);
    return status == Status::Success ? stream->completeConnect() : status;
  }
  void Send(std::string text) {
    const auto kept = std::make_shared<const std::string>(std::move(text));
    EXPECT_EQ(stream
                  ->send({}, static_cast<std::uint32_t>(kept->size()), kept->data(),
                         [kept](Status, const std::shared_ptr<LmIpclibMsg>&) {})
                  .status(),
              Status::Success);
  }
  void AwaitClosed() {
    if (link && !std::exchange(closedAwaited_, true)) closed_.Await();
  }

  task::Executor executor;
  Heard heard;
  std::shared_ptr<OpenLink> link;
  std::shared_ptr<LmIpclibStream> stream;

 private:
  const platform::GUID endpoint_;
  support::Signal closed_;
  bool closedAwaited_ = false;
};

class ServiceOfItsOwn : public testing::Test {
 protected:
  // A new one for each test: a process keeps its connection to the service that it knows at an endpoint.
  static platform::GUID NewEndpoint() {
    platform::GUID endpoint{};
    EXPECT_EQ(platform::UuidCreate(&endpoint), platform::RPC_S_OK);
    return endpoint;
  }

  support::Machine machine;
  const platform::GUID endpoint = NewEndpoint();
};

}  // namespace service
