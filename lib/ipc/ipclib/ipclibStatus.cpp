#include "lib/ipc/ipclib/ipclibStatus.h"

#include <cstddef>
#include <iterator>

namespace quill::ipc {
namespace {

constexpr std::string_view kStatusNames[] = {
    "Success",      "Unexpected",       "NotImplemented", "OutOfMemory",  "InvalidHandle",
    "InvalidParam", "BufferTooSmall",   "AccessDenied",   "InvalidState", "AlreadyExists",
    "NotFound",     "ProtocolError",    "StreamClosed",
    "StreamClosed",  // A time-out: it is meant to print the same.
    "Abort",        "FunctionNotFound",
};
constexpr std::string_view kStateNames[] = {"Init", "Started", "Stopping"};

template <std::size_t Count>
std::string_view NameIn(const std::string_view (&names)[Count], std::uint32_t value) {
  return value < Count ? names[value] : "unknown";
}

}  // namespace

std::string_view NameOf(LmIpcStatusCode status) noexcept {
  return NameIn(kStatusNames, static_cast<std::uint32_t>(status));
}
std::string_view NameOf(LmIpclibState state) noexcept { return NameIn(kStateNames, static_cast<std::uint32_t>(state)); }

}  // namespace quill::ipc
