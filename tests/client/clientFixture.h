// A client, the service that it reaches, and the lines that it logs.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "client/lmIpcClient.h"
#include "runtime/logCalls.h"
#include "tests/client/replacedCalls.h"
#include "tests/library/service.h"
#include "tests/support/machine.h"

namespace clientTests {

using library::kEndpoint;
using library::Matches;
using library::Service;
using quill::ipc::LmIpclibMsg;
using quill::ipc::LmIpclibStream;
using quill::ipc::StreamFlags;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Status = quill::ipc::LmIpcStatusCode;

// Lines as "E Class::Method(): text".
class Lines final : public runtime::LogReceiver {
 public:
  void Receive(const runtime::LogCall& call) override {
    std::function<void()> then;
    {
      const std::lock_guard lock(mutex_);
      lines_.push_back(std::string(1, runtime::LogLevelLetter(call.level)) + " " + call.functionName + ": " +
                       call.Text());
      if (call.level == thenLevel_) then = std::exchange(then_, nullptr);
    }
    if (then) then();
  }
  [[nodiscard]] std::vector<std::string> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }
  // Behind the next line of that level, once, on the thread that logs it.
  void Then(int level, std::function<void()> then) {
    const std::lock_guard lock(mutex_);
    thenLevel_ = level;
    then_ = std::move(then);
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
  int thenLevel_ = 0;
  std::function<void()> then_;
};

// Every line is wanted while it lives.
class Logged {
 public:
  Logged() {
    runtime::SetLogReceiver(lines);
    runtime::gLogLevel = 7;
  }
  ~Logged() {
    runtime::SetLogReceiver(nullptr);
    runtime::gLogLevel = 0;
  }
  Logged(const Logged&) = delete;
  Logged& operator=(const Logged&) = delete;

  const std::shared_ptr<Lines> lines = std::make_shared<Lines>();
};

// A client that writes down what it hears.
class Talker final : public client::LmIpcClient {
 public:
  using LmIpcClient::LmIpcClient;
  ~Talker() override { Disconnect(); }

  int ReservedOperation() override { return 0; }
  void OnMessage(const std::uint8_t* data, std::uint32_t size) override {
    {
      const std::lock_guard lock(mutex_);
      heard_.emplace_back(data, data + size);
    }
    came.Give();
  }
  void ReceiveCB(Status status, std::shared_ptr<LmIpclibMsg> message) override {
    const bool isLast = message->size() == 0;
    stream_ = message->stream();
    LmIpcClient::ReceiveCB(status, std::move(message));
    if (isLast) ended.Give();
  }
  [[nodiscard]] std::vector<std::string> Heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  // Of the last message; behind one of the signals.
  [[nodiscard]] std::shared_ptr<LmIpclibStream> Stream() const { return stream_.lock(); }
  [[nodiscard]] const std::shared_ptr<quill::ipc::LmIpclib>& Ipclib() const { return ipclib; }
  int Send(const std::string& text) {
    return SendMsg(reinterpret_cast<const std::uint8_t*>(text.data()), static_cast<std::uint32_t>(text.size()));
  }
  using LmIpcClient::SendMsg;

  support::Signal came;
  support::Signal ended;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> heard_;
  std::weak_ptr<LmIpclibStream> stream_;
};

}  // namespace clientTests
