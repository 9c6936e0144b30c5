#include "tests/library/service.h"

#include <gtest/gtest.h>

#include <chrono>

#include "lib/ipc/ipclib/createLink.h"
#include "lib/ipc/ipclib/linkConnector.h"
#include "lib/ipc/ipclib/linkReadyEvent.h"

namespace library {
namespace {

Service* current = nullptr;

constexpr auto kNoLimit = std::chrono::milliseconds::max();

class Connector final : public LmIpclibLinkConnector {
 public:
  LmIpcStatusCode connect(const std::shared_ptr<quill::task::TaskExecutor>&,
                          const std::shared_ptr<LmIpclibStream>& stream, const std::shared_ptr<LmIpclibLink>& link,
                          unsigned&) override {
    return Service::Current().Connect(stream, link);
  }
};

}  // namespace

Service::Service()
    : listener_(std::make_shared<LmIpclibLinkListener>(
          kEndpoint, [this](const StreamPtr& stream) { return TakeFurther(stream); })) {
  current = this;
}

Service::~Service() {
  // Also when its own tasks never run, for the tests that let calls fail.
  for (const auto& link : links_) {
    link->shutdown();
    link->abandon();
  }
  AwaitLinksClosed();
  current = nullptr;
}

Service& Service::Current() { return *current; }

bool Service::IsAsked(StreamFlags flags) {
  const std::lock_guard lock(mutex_);
  asked_.push_back(flags);
  return isReachable;
}

Status Service::IsAwaited(const WaitAsked& wait) {
  const std::lock_guard lock(mutex_);
  waits_.push_back(wait);
  return listens;
}

std::shared_ptr<OpenLink> Service::NewLink(const streams::Wire& in, const streams::Wire& out) {
  auto link = std::make_shared<OpenLink>([](LmIpclibLink&) {}, [this](LmIpclibLink&) { linkClosed_.Give(); });
  link->Listen(listener_);
  if (link->connecting() != Status::Success || streams::Attach(*link, in, out, channelSize) != Status::Success) {
    link->linkError();
    return link;
  }
  unsigned errorCode = 0;
  if (isThere) static_cast<void>(link->start(executor_.Share(), errorCode));
  return link;
}

Status Service::Connect(const StreamPtr& stream, const std::shared_ptr<LmIpclibLink>& link) {
  const Status answer = answers ? answers() : Status::Success;
  if (answer != Status::Success) return answer;
  auto toService = std::make_unique<streams::Wire>(channelSize);
  auto toClient = std::make_unique<streams::Wire>(channelSize);
  const auto own = NewLink(*toService, *toClient);
  const auto accepted = std::make_shared<LmIpclibStream>(link->endpoint(), stream->streamName(), StreamFlags(), 7,
                                                         stream->streamId(), executor_.Share(), own);
  const Status added = own->addStream(accepted);
  if (added == Status::Success) static_cast<void>(Accept(accepted));
  stream->setRemote(7, accepted->streamId(), StreamFlags(0x00010000));
  const Status attached =
      streams::Attach(dynamic_cast<LmIpclibLinkSharedMemWin&>(*link), *toClient, *toService, channelSize);
  const std::lock_guard lock(mutex_);
  names_.push_back(stream->streamName());
  links_.push_back(own);
  wires_.push_back(std::move(toService));
  wires_.push_back(std::move(toClient));
  return attached;
}

Status Service::TakeFurther(const StreamPtr& stream) {
  {
    const std::lock_guard lock(mutex_);
    ++opened_;
  }
  const Status answer = opens ? opens() : Status::Success;
  return answer == Status::Success ? Accept(stream) : answer;
}

Status Service::Accept(const StreamPtr& stream) {
  {
    const std::lock_guard lock(mutex_);
    streams_.push_back(stream);
  }
  return stream->accept({}, [this, weak = std::weak_ptr(stream)](Status, const std::shared_ptr<LmIpclibMsg>& message) {
    Hear(weak, *message);
  });
}

void Service::Hear(const std::weak_ptr<LmIpclibStream>& weak, const LmIpclibMsg& message) {
  const bool isLast = message.size() == 0;
  if (isLast && closesInTurn) static_cast<void>(weak.lock()->close(kNoLimit));
  const std::lock_guard lock(mutex_);
  messages_.push_back(isLast ? "<end>" : TextOf(message));
  messageCame_.notify_all();
}

std::vector<StreamFlags> Service::Asked() const {
  const std::lock_guard lock(mutex_);
  return asked_;
}

std::vector<WaitAsked> Service::Waits() const {
  const std::lock_guard lock(mutex_);
  return waits_;
}

std::vector<std::u16string> Service::Names() const {
  const std::lock_guard lock(mutex_);
  return names_;
}

std::size_t Service::Opened() const {
  const std::lock_guard lock(mutex_);
  return opened_;
}

std::string Service::NextMessage() {
  std::unique_lock lock(mutex_);
  messageCame_.wait(lock, [this] { return messages_.size() > messagesTaken_; });
  return messages_[messagesTaken_++];
}

std::vector<Service::StreamPtr> Service::Streams() const {
  const std::lock_guard lock(mutex_);
  std::vector<StreamPtr> alive;
  for (const auto& weak : streams_) {
    if (auto stream = weak.lock()) alive.push_back(std::move(stream));
  }
  return alive;
}

void Service::Send(const std::string& text) {
  for (const auto& stream : Streams()) {
    const auto kept = std::make_shared<const std::string>(text);
    static_cast<void>(stream->send({}, static_cast<std::uint32_t>(kept->size()), kept->data(),
                                   [kept](Status, const std::shared_ptr<LmIpclibMsg>&) {}));
  }
}

void Service::CloseStreams() {
  for (const auto& stream : Streams()) static_cast<void>(stream->close(kNoLimit));
}

void Service::AwaitLinksClosed() {
  for (; linksAwaited_ < links_.size(); ++linksAwaited_) linkClosed_.Await();
}

}  // namespace library

namespace quill::ipc {

std::unique_ptr<LmIpclibLinkConnector> createLinkConnector(StreamFlags flags) {
  if (!library::Service::Current().IsAsked(flags)) return nullptr;
  return std::make_unique<library::Connector>();
}

LmIpcStatusCode waitForLinkListener(const platform::GUID& endpoint, platform::DWORD timeoutMs,
                                    platform::EventHandle abortEvent) noexcept {
  return library::Service::Current().IsAwaited({endpoint, timeoutMs, abortEvent});
}

std::shared_ptr<LmIpclibLink> createLink(const platform::GUID& endpoint, std::uint32_t flags,
                                         LmIpclibLink::Callback onStopping, LmIpclibLink::Callback onClosed) {
  if (!library::Service::Current().hasLinks) return nullptr;
  return std::make_shared<LmIpclibLinkSharedMemWin>(endpoint, flags, std::move(onStopping), std::move(onClosed));
}

}  // namespace quill::ipc
