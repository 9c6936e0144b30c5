#include "tests/support/targets.h"

namespace support {

extern const bool kUserHas32BitView = false;
extern const bool kStoresNulBehindText = true;

}  // namespace support
