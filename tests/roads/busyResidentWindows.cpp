// Launchers beside a client that is slow to start, and the resident once that is up. Only on this target: programs of
// the other have no input that a resident could wait for, so a start keeps nobody.
#include <gmock/gmock.h>

#include "tests/roads/roadMachine.h"

namespace roads {
namespace {

TEST(BusyResident, StartsTheNextClientOnceASlowOneHasComeUp) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.StartResident();

  machine.Clients().Hold();
  EXPECT_EQ(machine.Launch(u"apppathrd/path=slow"), 0);
  EXPECT_NE(machine.Clients().Next().find(u"path=slow"), std::u16string::npos);
  EXPECT_EQ(machine.Launch(u"#createConfigData"), 0);
  machine.Clients().Release();

  EXPECT_TRUE(machine.Settle());
  EXPECT_EQ(machine.Launch(u"apppathrd/path=next"), 0);
  EXPECT_NE(machine.NextClient().find(u"path=next"), std::u16string::npos);
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
