// The one place of what the front end calls and does not have yet. It stands behind its own header and at its place in
// the order of steps; until its own source file takes its place here, it does nothing, and says so by its result.
#include "client/rdeCmdClient.h"

namespace client {
std::uint32_t RdeCmdClient::PostRedirectionRequest(std::uint32_t, const char16_t*) { return 0; }
}  // namespace client
