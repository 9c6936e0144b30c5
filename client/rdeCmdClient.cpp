#include "client/rdeCmdClient.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "launcher/debugLog.h"
#include "lib/ipc/ipclib/littleEndian.h"
#include "platform/handles.h"
#include "platform/rpc.h"
#include "platform/session.h"

namespace client {
namespace {

using debugLog::TraceViaHelper;
using platform::GUID;

constexpr const char* kPostRequest = "RdeCmdClient::PostRedirectionRequest";
constexpr const char* kPostCommand = "RdeCmdClient::PostRdeCmdRequest";

constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kTextOffset = 8;
constexpr std::size_t kPadding = 4;
constexpr std::size_t kAllButText = kTextOffset + kPadding;

struct Free {
  void operator()(std::uint8_t* bytes) const noexcept { std::free(bytes); }
};
using Bytes = std::unique_ptr<std::uint8_t, Free>;

void WriteNumber(std::uint8_t* at, std::uint32_t number) {
  quill::ipc::writeLittleEndian(std::as_writable_bytes(std::span<std::uint8_t, 4>(at, 4)), number);
}

// Null when there is no memory, or no number for so long a text.
Bytes WriteCommand(std::uint32_t command, std::u16string_view url, std::size_t& size) {
  const std::size_t length = (url.size() + 1) * sizeof(char16_t);
  size = length + kAllButText;
  if (size > std::numeric_limits<std::uint32_t>::max()) return nullptr;
  // Cleared, which ends the text with its NUL. Nobody writes to the last four bytes, and what stood in the memory
  // before is none of the service's business.
  Bytes bytes(static_cast<std::uint8_t*>(std::calloc(1, size)));
  if (!bytes) return nullptr;
  WriteNumber(bytes.get(), command);
  WriteNumber(bytes.get() + kLengthOffset, static_cast<std::uint32_t>(length));
  std::memcpy(bytes.get() + kTextOffset, url.data(), url.size() * sizeof(char16_t));
  return bytes;
}

// The endpoint of the service in this process's session.
std::optional<GUID> Endpoint() {
  GUID endpoint{};
  if (platform::UuidFromStringW(u"AD14170A-EC5E-4088-B123-80B4AE233D0B", &endpoint) != platform::RPC_S_OK) {
    TraceViaHelper(u"%S: Failed to generate GUID from string.\n", kPostCommand);
    return std::nullopt;
  }
  platform::DWORD session = 0;
  if (!platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &session)) {
    TraceViaHelper(u"%S: Failed to initialize endpoint GUID.\n", kPostCommand);
    return std::nullopt;
  }
  endpoint.Data1 = ~session;
  return endpoint;
}

}  // namespace

std::uint32_t RdeCmdClient::PostRedirectionRequest(std::uint32_t command, const char16_t* url) {
  std::size_t size = 0;
  const Bytes message = WriteCommand(command, url, size);
  if (!message) {
    TraceViaHelper(u"%S: Error to allocate rdeCmdMsg.\n", kPostRequest);
    return 0;
  }
  TraceViaHelper(u"%S: Post redirection %s to rdeServer.\n", kPostRequest, url);
  return PostRdeCmdRequest({message.get(), size});
}

std::uint32_t RdeCmdClient::PostRdeCmdRequest(std::span<const std::uint8_t> message) {
  const auto endpoint = Endpoint();
  if (!endpoint) return 0;
  const auto& tail = endpoint->Data4;
  TraceViaHelper(u"Try to connect guid: %08lX-%04hX-%04hX-%02hhX%02hhX-%02hhX%02hhX%02hhX%02hhX%02hhX%02hhX.\n",
                 endpoint->Data1, endpoint->Data2, endpoint->Data3, tail[0], tail[1], tail[2], tail[3], tail[4],
                 tail[5], tail[6], tail[7]);

  const LmIpcStatusCode status = ConnectToStream(*endpoint, 1);
  if (status != LmIpcStatusCode::Success) {
    TraceViaHelper(u"%S: Failed to connect the rdeServer, error = %d.\n", kPostCommand, static_cast<int>(status));
    return 0;
  }
  TraceViaHelper(u"Connect to rdeServer succeed.\n");

  const int sent = SendMsg(message.data(), static_cast<std::uint32_t>(message.size()));
  static_cast<void>(CloseStream());
  if (sent == 0) {
    TraceViaHelper(u"%S: Failed to send message to rdeServer.\n", kPostCommand);
    return 0;
  }
  return 1;
}

}  // namespace client
