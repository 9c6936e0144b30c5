// The registration of the launch scheme.
#include "platform/module.h"
#include "settings/defaultHandlers.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using settings::SetCustomProtocolKey;
using testing::ElementsAre;
using testing::IsEmpty;
using LaunchScheme = ResidentTest;

const std::u16string kKey = kClasses + kLaunchScheme;

std::u16string OwnProgram() {
  char16_t path[1024] = {};
  platform::GetModuleFileNameW(nullptr, path, 1024);
  return path;
}

TEST_F(LaunchScheme, IsRegisteredWithTheRunningProgramAndItsArgumentQuoted) {
  SetCustomProtocolKey(true);
  EXPECT_EQ(Stored(Hive::User, kKey + kCommand), Terminated(u"\"" + OwnProgram() + u"\" \"%1\""));
  EXPECT_EQ(Stored(Hive::User, kKey, u"URL Protocol"), Terminated(u""));
  EXPECT_EQ(Stored(Hive::User, kKey), std::nullopt);  // It has no description.
  EXPECT_FALSE(KeyExists(Hive::Machine, kKey));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(LaunchScheme, OverwritesWhateverCommandStoodThere) {
  support::SetText(Hive::User, kKey + kCommand, u"", u"another program");
  SetCustomProtocolKey(true);
  EXPECT_EQ(Stored(Hive::User, kKey + kCommand), Terminated(u"\"" + OwnProgram() + u"\" \"%1\""));
}

TEST_F(LaunchScheme, IsRemovedWithAllThatIsBelowIt) {
  SetCustomProtocolKey(true);
  support::CreateKey(Hive::User, kKey + u"\\more");
  SetCustomProtocolKey(false);
  EXPECT_FALSE(KeyExists(Hive::User, kKey));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(LaunchScheme, ThatIsNotThereCannotBeRemoved) {
  SetCustomProtocolKey(false);
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to delete key for custom protocol url launch\n"));
}

}  // namespace
}  // namespace resident
