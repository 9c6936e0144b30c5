#include "tests/support/targets.h"

namespace support {

extern const bool kUserHas32BitView = true;
extern const bool kStoresNulBehindText = false;

}  // namespace support
