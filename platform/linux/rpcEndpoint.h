// Where the services of the machine are met: one local socket for each endpoint, in one folder.
#pragma once

#include <string_view>

#include "platform/linux/localSocket.h"

namespace platform::rpcEndpoint {

// The place of an endpoint, whether or not somebody owns it. An empty name, with the last error set, on failure.
[[nodiscard]] localSocket::Place PlaceOf(std::u16string_view endpoint);

}  // namespace platform::rpcEndpoint
