// A library, the service that it reaches, and what its users hear.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclib.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/lineSink.h"
#include "tests/ipc/openHandles.h"
#include "tests/library/service.h"

namespace library {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr StreamFlags kShared(9);
constexpr StreamFlags kOwnLink(10);
constexpr auto kNoTimer = std::chrono::milliseconds::max();

// A library that tests can look into.
class OpenLibrary final : public LmIpclib {
 public:
  using LmIpclib::LmIpclib;

  [[nodiscard]] std::vector<std::shared_ptr<LmIpclibLink>> AllLinks() const {
    const Lock lock(mutex);
    std::vector<std::shared_ptr<LmIpclibLink>> all;
    for (const auto& [id, link] : links) all.push_back(link);
    return all;
  }
  [[nodiscard]] std::vector<platform::GUID> SharedEndpoints() const {
    const Lock lock(mutex);
    std::vector<platform::GUID> endpoints;
    for (const auto& [endpoint, link] : sharedLinks) endpoints.push_back(endpoint);
    return endpoints;
  }
  void Listen(std::shared_ptr<LmIpclibListener> listener) { listeners.push_back(std::move(listener)); }
};

// Hears a stream.
class Hearer {
 public:
  [[nodiscard]] LmIpclib::RecvCallback Callback() {
    return [this](Status status, const std::shared_ptr<LmIpclibMsg>& message) {
      EXPECT_EQ(status, Status::Success);
      if (first) std::exchange(first, nullptr)();
      {
        const std::lock_guard lock(mutex_);
        texts_.push_back(message->size() == 0 ? "<end>" : TextOf(*message));
      }
      came.Give();
    };
  }
  [[nodiscard]] std::vector<std::string> Texts() const {
    const std::lock_guard lock(mutex_);
    return texts_;
  }

  std::function<void()> first;  // Runs within the first callback.
  support::Signal came;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

// Tells when the library traces a text of that beginning in that operation, from when it is attached.
class Watch final : public quill::log::Sink {
 public:
  [[nodiscard]] static std::shared_ptr<Watch> For(std::string function, std::string beginning) {
    auto watch = std::make_shared<Watch>(std::move(function), std::move(beginning));
    ipcTrace->attach(watch);
    return watch;
  }
  Watch(std::string function, std::string beginning)
      : function_(std::move(function)), beginning_(std::move(beginning)) {}
  void Write(std::int32_t, const quill::log::Location& location, std::string_view text) override {
    if (location.function == function_ && text.starts_with(beginning_)) seen_.Give();
  }
  void Await() { seen_.Await(); }

 private:
  const std::string function_;
  const std::string beginning_;
  support::Signal seen_;
};

// Holds up the answer to a new link until it is let go.
class HeldAnswer {
 public:
  explicit HeldAnswer(Service& service) {
    service.answers = [this] {
      asked_.Give();
      goesOn_.Await();
      return Status::Success;
    };
  }
  HeldAnswer(const HeldAnswer&) = delete;
  HeldAnswer& operator=(const HeldAnswer&) = delete;
  void AwaitQuestion() { asked_.Await(); }
  void LetGo() { goesOn_.Give(); }

 private:
  support::Signal asked_;
  support::Signal goesOn_;
};

class Library : public testing::Test {
 public:
  Library() = default;
  ~Library() override {
    // Streams that were never completed do not hear the service agree.
    for (const auto& link : library->AllLinks()) link->shutdown();
    static_cast<void>(library->uninit());
    const std::weak_ptr<LmIpclib> last = library;
    library.reset();
    EXPECT_TRUE(last.expired());
    ipcTrace->removeAllSinks();
  }

  // Instead of the library that is there.
  void Start(std::chrono::milliseconds stopTimeout = LmIpclib::kStopTimeout) {
    library = std::make_shared<OpenLibrary>(stopTimeout);
    ASSERT_EQ(library->init(0), Status::Success);
  }
  [[nodiscard]] Expected<LmIpclib::Stream> Connect(StreamFlags flags = kShared,
                                                   const platform::GUID& endpoint = kEndpoint) {
    return library->connect(endpoint, u"talk", flags, heard.Callback(), 0, nullptr);
  }
  [[nodiscard]] LmIpclib::Stream Connected(StreamFlags flags = kShared, const platform::GUID& endpoint = kEndpoint) {
    const auto stream = Connect(flags, endpoint);
    EXPECT_EQ(stream.status(), Status::Success);
    if (!stream) return nullptr;
    EXPECT_EQ((*stream)->completeConnect(), Status::Success);
    return *stream;
  }
  [[nodiscard]] std::shared_ptr<LmIpclibLink> NewestLink() const { return library->AllLinks().back(); }
  static Status Send(const LmIpclib::Stream& stream, const std::string& text) {
    const auto kept = std::make_shared<const std::string>(text);
    return stream
        ->send({}, static_cast<std::uint32_t>(kept->size()), kept->data(),
               [kept](Status, const std::shared_ptr<LmIpclibMsg>&) {})
        .status();
  }

  Service service;
  Hearer heard;
  std::shared_ptr<OpenLibrary> library = std::make_shared<OpenLibrary>();
};

}  // namespace library
