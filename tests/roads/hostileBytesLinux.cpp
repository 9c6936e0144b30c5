// Only this target's command lines are bytes.
#include <gmock/gmock.h>

#include "tests/roads/roadMachine.h"

namespace roads {
namespace {

TEST(HostileBytes, ThatAreNoUtf8ArriveAsTheUnitsThatStandForThem) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.StartResident();
  support::StartOptions options = OptionsFor(ProgramPath(), {});
  options.arguments = {"tavrix-prism-url-launch://apppathrd/path=a\xFF\xC3(\xF0\x9F\x98"};
  support::Process launcher(options);
  EXPECT_EQ(Await(launcher), 0);
  const std::u16string path{u'a', 0xDCFF, 0xDCC3, u'(', 0xDCF0, 0xDC9F, 0xDC98};
  EXPECT_EQ(machine.NextClient(),
            machine.Client() + u" \"lumenar-client://host1/calc?url=apppathrd%2Fpath=" + path + u"\"");
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
