#include "tests/roads/localOpen.h"

#include <gmock/gmock.h>

#include "tests/roads/roadMachine.h"

namespace roads {

const std::vector<support::Hive> kHandlerHives{support::Hive::User};
const std::vector<std::uint32_t> kNoHandlerErrors{1155};

namespace {

// On the other target such texts are the shell's own matter: Wine's comes to harm with them.
TEST(LocalOpenOfALongUrl, CutsTheTextAt255Units) {
  RoadMachine machine;
  for (const std::size_t length : {std::size_t{1024}, std::size_t{32000}}) {
    const std::u16string url = u"lumenar-nosuch:" + std::u16string(length, u'x');
    EXPECT_EQ(machine.Run({u"--url", url}), 0);
    EXPECT_THAT(machine.NewLog(),
                testing::ElementsAre(("ShellExecute failed: url '" + support::Narrow(url)).substr(0, 255)));
  }
}

}  // namespace
}  // namespace roads
