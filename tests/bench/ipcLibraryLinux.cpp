#include "tests/bench/ipcLibraryLinux.h"

#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include "lib/ipc/ipclib/ipclib.h"
#include "lib/ipc/ipclib/linkReadyEvent.h"
#include "lib/task/windowsThreadPoolExecutor.h"
#include "tests/streams/openLink.h"
#include "tests/support/rpcService.h"

namespace bench {
namespace {

using namespace quill::ipc;
using streams::OpenLink;
using streams::Wire;

constexpr std::uint32_t kLinkValue = 7;
constexpr std::uint32_t kSmallBlock = 65536;
constexpr std::uint32_t kLargeBlock = 1048576;
constexpr platform::DWORD kServiceComesWithin = 60'000;  // Milliseconds.
constexpr std::chrono::milliseconds kEndsWithin{10'000};

void MustSucceed(LmIpcStatusCode status, const char* what) {
  if (status != LmIpcStatusCode::Success) Fail(std::string(what) + " failed: " + std::string(NameOf(status)));
}

// Of the service's side, from the client's point of view.
support::ChannelHandles Described(const Wire& wire) {
  LmIpclibLinkChannelResourceWin handles(false);
  wire.Describe(handles);
  return {handles.mapping, handles.dataReadyEvent, handles.dataConsumedEvent, handles.errorEvent, handles.stopEvent};
}

// The service: one client, one stream.
class Service {
 public:
  using Hear = std::function<void(std::byte first)>;

  Service(std::uint32_t blockSize, Hear hear) : blockSize_(blockSize), hear_(std::move(hear)) {}

  support::ConnectReply Answer(const platform::GUID& endpoint, const support::ConnectRequest& request) {
    MustSucceed(link_->connecting(), "connecting");
    MustSucceed(streams::Attach(*link_, toService_, toClient_, blockSize_, request.clientProcess), "attach");
    unsigned errorCode = 0;
    MustSucceed(link_->start(executor_, errorCode), "start");
    stream_ = std::make_shared<LmIpclibStream>(endpoint, request.streamName, StreamFlags(), kLinkValue,
                                               static_cast<std::uint64_t>(request.streamId), executor_, link_);
    MustSucceed(link_->addStream(stream_), "addStream");
    const auto hear = [this](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>& message) {
      if (message->size() != 0) hear_(*message->data());
    };
    MustSucceed(stream_->accept({}, hear), "accept");
    return Reply();
  }
  [[nodiscard]] LmIpclibStream& Stream() const { return *stream_; }

 private:
  [[nodiscard]] support::ConnectReply Reply() const {
    support::ConnectReply reply;
    reply.channelSize = static_cast<std::int32_t>(blockSize_);
    reply.linkValue = kLinkValue;
    reply.remoteLinkValue = static_cast<std::int64_t>(link_->linkId());
    reply.receive = Described(toClient_);
    reply.send = Described(toService_);
    reply.remoteStreamId = static_cast<std::int64_t>(stream_->streamId());
    return reply;
  }

  const std::uint32_t blockSize_;
  const Hear hear_;
  const std::shared_ptr<quill::task::TaskExecutor> executor_ = quill::task::CreateWindowsThreadPoolExecutor(nullptr, 0);
  const Wire toService_{blockSize_};
  const Wire toClient_{blockSize_};
  const std::shared_ptr<OpenLink> link_ = std::make_shared<OpenLink>();
  std::shared_ptr<LmIpclibStream> stream_;
};

class LibraryLine final : public CallbackLine {
 public:
  LibraryLine(std::uint32_t blockSize, const platform::GUID& endpoint) : blockSize_(blockSize), endpoint_(endpoint) {}
  ~LibraryLine() override {
    near_.reset();
    if (library_) library_->uninit();
  }

  void Open() override {
    library_ = std::make_shared<LmIpclib>(kEndsWithin);
    MustSucceed(library_->init(0), "init");
    const auto hear = [this](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>& message) {
      if (message->size() != 0) HearAnswer();
    };
    auto connected = library_->connect(endpoint_, u"bench", StreamFlags(9), hear, kServiceComesWithin, nullptr);
    MustSucceed(connected.status(), "connect");
    near_ = *connected;
    MustSucceed(near_->completeConnect(), "completeConnect");
  }

  void Serve() override {
    far_ = std::make_unique<Service>(blockSize_, [this](std::byte first) { HearMessage(first); });
    const auto ready = getLinkReadyEvent(endpoint_, nullptr);
    const auto listening = support::RpcService::Listen(
        endpoint_, [this](const support::ConnectRequest& request) { return far_->Answer(endpoint_, request); });
    platform::SetEvent(ready.get());
    while (true) pause();
  }

 private:
  void Put(std::span<const std::byte> message) override {
    LmIpclibStream& stream = far_ ? far_->Stream() : *near_;
    const auto sent = stream.send({}, static_cast<std::uint32_t>(message.size()), message.data(),
                                  [this](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) { HearSent(); });
    MustSucceed(sent.status(), "send");
  }

  const std::uint32_t blockSize_;
  const platform::GUID endpoint_;
  std::shared_ptr<LmIpclib> library_;
  std::shared_ptr<LmIpclibStream> near_;
  std::unique_ptr<Service> far_;
};

}  // namespace

std::unique_ptr<IpcLine> NewLibraryLine() { return std::make_unique<LibraryLine>(kSmallBlock, streams::kEndpoint); }

std::unique_ptr<IpcLine> NewLibraryLineLargeBlocks() {
  platform::GUID endpoint = streams::kEndpoint;
  ++endpoint.Data1;
  return std::make_unique<LibraryLine>(kLargeBlock, endpoint);
}

}  // namespace bench
