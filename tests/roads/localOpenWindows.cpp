#include "tests/roads/localOpen.h"

namespace roads {

// The user's is enough for Windows. Wine 8 looks at the machine's alone.
const std::vector<support::Hive> kHandlerHives{support::Hive::User, support::Hive::Machine};
// Windows says that nothing is associated, Wine 8 that it found no such path.
const std::vector<std::uint32_t> kNoHandlerErrors{1155, 3};

}  // namespace roads
