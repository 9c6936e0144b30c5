#include "client/lmIpcClient.h"

#include <algorithm>
#include <new>
#include <utility>

#include "lib/ipc/ipclib/flags.h"
#include "platform/rpc.h"
#include "runtime/logCalls.h"

namespace client {
namespace {

using quill::ipc::LmIpclib;
using quill::ipc::LmIpclibMsg;
using quill::ipc::StreamFlags;
using runtime::LogIfWanted;

constexpr StreamFlags kPlain(9);
constexpr StreamFlags kAuthenticated(265);
constexpr auto kNoTimer = std::chrono::milliseconds::max();

constexpr int kError = 1;
constexpr int kInformation = 3;
constexpr int kTrace = 5;

// The number of a status, as the lines tell it.
int NumberOf(LmIpcStatusCode status) { return static_cast<int>(status); }

struct RpcText {
  ~RpcText() { platform::RpcStringFreeW(&text); }
  char16_t* text = nullptr;
};

std::u16string NewName() {
  platform::GUID id{};
  RpcText name;
  if (platform::UuidCreate(&id) != platform::RPC_S_OK) return {};
  if (platform::UuidToStringW(&id, &name.text) != platform::RPC_S_OK) return {};
  return name.text;
}

}  // namespace

LmIpcClient::LmIpcClient(std::chrono::milliseconds stopTimeout) : streamName_(NewName()), stopTimeout_(stopTimeout) {}

LmIpcClient::~LmIpcClient() { Disconnect(); }

void LmIpcClient::Disconnect() noexcept try {
  static_cast<void>(CloseStream());
  stream_.reset();
  // Without a stream nothing was closed, and a library that still holds links calls back.
  if (const auto library = std::exchange(ipclib, nullptr)) static_cast<void>(library->uninit());
} catch (const std::bad_alloc&) {
  // Nobody is left to be told.
}

LmIpcStatusCode LmIpcClient::ConnectToStream(const platform::GUID& endpoint, int option) {
  constexpr const char* kFunction = "LmIpcClient::ConnectToStream()";
  if (StartLibrary() != LmIpcStatusCode::Success) {
    LogIfWanted(kFunction, kError, "Failed to initialize Ipclib.");
    return LmIpcStatusCode::Unexpected;
  }
  const auto connected = ipclib->connect(
      endpoint, streamName_, option != 0 ? kAuthenticated : kPlain,
      [this](LmIpcStatusCode status, std::shared_ptr<LmIpclibMsg> message) { ReceiveCB(status, std::move(message)); },
      0, nullptr);
  if (!connected) {
    LogIfWanted(kFunction, kError, "Failed to connect to the Ipc stream, status=%d.", NumberOf(connected.status()));
    return connected.status();
  }
  // Put away before the first message can come in.
  stream_ = *connected;
  const LmIpcStatusCode status = stream_->completeConnect();
  if (status != LmIpcStatusCode::Success) {
    // Spelt like this in every log there is.
    LogIfWanted(kFunction, kError, "Failed to comple connection, status=%d.", NumberOf(status));
    return status;
  }
  LogIfWanted(kFunction, kInformation, "Connected to Ipc stream, StreamName=%S, StreamId=%lld.", stream_->streamName(),
              stream_->streamId());
  connected_ = true;
  return LmIpcStatusCode::Success;
}

LmIpcStatusCode LmIpcClient::StartLibrary() {
  if (ipclib) return LmIpcStatusCode::Success;
  auto library = std::make_shared<LmIpclib>(stopTimeout_);
  const LmIpcStatusCode status = library->init(0);
  if (status == LmIpcStatusCode::Success) ipclib = std::move(library);
  return status;
}

int LmIpcClient::SendMsg(const std::uint8_t* data, std::uint32_t size) {
  if (!connected_ || !stream_) {
    // Spelt like this in every log there is.
    LogIfWanted("LmIpcClient::SendMsg()", kError, "The client is not conntected before send message.");
    return 0;
  }
  return SendMsg(stream_->streamId(), data, size);
}

// Nobody needs the id: there is one stream.
int LmIpcClient::SendMsg(std::uint64_t, const std::uint8_t* data, std::uint32_t size) {
  constexpr const char* kFunction = "LmIpcClient::SendMsg()";
  if (!connected_ || !stream_) {
    LogIfWanted(kFunction, kError, "The client is not conntected before send message.");
    return 0;
  }
  auto copy = std::make_shared_for_overwrite<std::uint8_t[]>(size);
  std::copy_n(data, size, copy.get());
  const void* const bytes = copy.get();
  const auto sent =
      stream_->send({}, size, bytes, [copy = std::move(copy)](LmIpcStatusCode status, const auto& message) mutable {
        if (status != LmIpcStatusCode::Success) {
          LogIfWanted("LmIpcClient::SendMsg::<lambda_1>::operator ()()", kError,
                      "Message delivery failed, streamId=%lld.", message->srcStreamId());
        }
        copy.reset();
      });
  if (!sent) {
    LogIfWanted(kFunction, kError, "Message delivery failed, status=%d.", NumberOf(sent.status()));
    return 0;
  }
  return 1;
}

void LmIpcClient::ReceiveCB(LmIpcStatusCode, std::shared_ptr<LmIpclibMsg> message) {
  constexpr const char* kFunction = "LmIpcClient::ReceiveCB()";
  const std::uint32_t size = message->size();
  const auto stream = message->stream();
  if (size == 0) {
    LogIfWanted(kFunction, kInformation, "Receive zero size data, going to close stream, streamName=%S, Id=%lld.",
                stream->streamName(), stream->streamId());
    static_cast<void>(stream->close(kNoTimer));
  } else if (message->data() == nullptr) {
    LogIfWanted(kFunction, kError, "Stream buffer is empty, streamName=%S, Id=%lld.", stream->streamName(),
                stream->streamId());
  } else {
    LogIfWanted(kFunction, kTrace, "Receive message from streamName=%S, Id=%lld, dataSize=%d.", stream->streamName(),
                stream->streamId(), size);
    OnMessage(reinterpret_cast<const std::uint8_t*>(message->data()), size);
  }
}

LmIpcStatusCode LmIpcClient::CloseStream() {
  if (!stream_) return LmIpcStatusCode::Success;
  const LmIpcStatusCode status = stream_->close(kNoTimer);
  if (status != LmIpcStatusCode::Success) {
    LogIfWanted("LmIpcClient::CloseStream()", kError, "Failed to close Ipc, StreamName=%S, StreamId=%lld status=%d.",
                stream_->streamName(), stream_->streamId(), NumberOf(status));
    return status;
  }
  stream_.reset();
  if (ipclib) {
    static_cast<void>(ipclib->uninit());
    ipclib.reset();
  }
  return LmIpcStatusCode::Success;
}

}  // namespace client
