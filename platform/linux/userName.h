// The name of the user whom this process runs for.
#pragma once

#include <string>

namespace platform {

// From the host's table of users, else from $USER, else "user". Bytes as the host has them; never empty.
[[nodiscard]] std::string UserName();

}  // namespace platform
