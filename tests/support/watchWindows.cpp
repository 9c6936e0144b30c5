#include "tests/support/watch.h"

namespace support {

void WatchTests() {}

}  // namespace support
