// The client that posts a command to rdeServer, the service that takes it to the other side of the remote session.
#pragma once

#include <cstdint>

namespace client {

// Lives for one request. Fire and forget: no answer is awaited, nothing is retried.
class RdeCmdClient {
 public:
  // The only command that this program sends: open the URL.
  static constexpr std::uint32_t kOpenUrl = 2;

  // 1 when the message was handed over, 0 on every failure.
  [[nodiscard]] std::uint32_t PostRedirectionRequest(std::uint32_t command, const char16_t* url);
};

}  // namespace client
