// The client that posts a command to rdeServer, the service that takes it to the other side of the remote session.
//
// A command crosses as one message, all numbers little-endian, text as UTF-16:
//
//   0            4   the command's number
//   4            4   bytes of the text, its NUL included
//   8            n   the text
//   8 + n        4   zeros
//
// Each session has an endpoint of its own: the first number of its id is the complement of the session's.
#pragma once

#include <cstdint>
#include <span>

#include "client/lmIpcClient.h"

namespace client {

// Lives for one request. Fire and forget: no answer is awaited, nothing is retried, and what the service says is
// dropped. Failures are told to the daily log (launcher/debugLog.h).
class RdeCmdClient : public LmIpcClient {
 public:
  // The only command that this program sends: open the URL.
  static constexpr std::uint32_t kOpenUrl = 2;

  using LmIpcClient::LmIpcClient;
  ~RdeCmdClient() override { Disconnect(); }

  // 1 when the message was handed to the library, 0 on every failure. `url` ends in a NUL.
  [[nodiscard]] std::uint32_t PostRedirectionRequest(std::uint32_t command, const char16_t* url);

  int ReservedOperation() override { return 0; }
  void OnMessage(const std::uint8_t*, std::uint32_t) override {}

 private:
  std::uint32_t PostRdeCmdRequest(std::span<const std::uint8_t> message);
};

}  // namespace client
