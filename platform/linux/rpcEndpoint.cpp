#include "platform/linux/rpcEndpoint.h"

#include "platform/error.h"
#include "platform/linux/machine.h"

namespace platform::rpcEndpoint {

localSocket::Place PlaceOf(std::u16string_view endpoint) {
  localSocket::Place place{.folder = machine::RuntimeFolder("endpoints"), .name = {}};
  if (!place.folder.empty()) place.name = machine::ToHost(endpoint);
  return place;
}

}  // namespace platform::rpcEndpoint
