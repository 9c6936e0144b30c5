// The user's registrations as the command of URL schemes.
#include "settings/defaultHandlers.h"

#include "platform/module.h"
#include "platform/registry.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using settings::HandlerList;
using support::CreateKey;
using support::SetText;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using DefaultHandlers = ResidentTest;

const std::u16string kOwnCommand = u"\"C:\\client\\lumenar-url-protocol-launch-helper.exe\" %1";
const std::u16string kOldCommand = u"\"D:\\old\\lumenar-url-protocol-launch-helper.exe\" %1";

std::u16string CommandKey(std::u16string_view name) { return kClasses + Scheme(name) + kCommand; }
std::optional<Value> CommandOf(std::u16string_view name) { return Stored(Hive::User, CommandKey(name)); }
void Register(Hive hive, std::u16string_view name, std::u16string_view command) {
  SetText(hive, CommandKey(name), u"", command);
}
void Redirect(std::u16string_view name) { CreateKey(Hive::Machine, kRoot + u"\\" + Scheme(name)); }

// A client at C:\client\ on which redirection is on, and a user who has classes.
void MakeClient() {
  MakeMachine(u"Client");
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\client\\");
  CreateKey(Hive::User, u"Software\\Classes");
}

HandlerList Enumerated() {
  HandlerList list;
  EXPECT_TRUE(settings::EnumerateDefaultHandlers(list));
  return list;
}

HandlerList Supported(int filter) {
  HandlerList list;
  EXPECT_TRUE(settings::GetSupportedProtocols(list, filter));
  return list;
}

TEST_F(DefaultHandlers, AreRegisteredWithTheseBytes) {
  MakeClient();
  Redirect(u"a");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  const std::u16string key = kClasses + Scheme(u"a");
  EXPECT_EQ(Stored(Hive::User, key), Unterminated(u"URL:lumenar-test-a Protocol"));
  EXPECT_EQ(Stored(Hive::User, key, u"URL Protocol"), Terminated(u""));
  EXPECT_EQ(CommandOf(u"a"), Unterminated(kOwnCommand));
  EXPECT_FALSE(KeyExists(Hive::Machine, key));
  EXPECT_THAT(log.Texts(),
              ElementsAre("EnumerateDefaultHandlers: RegQueryInfoKey failed for key 'SOFTWARE\\Classes'.\n"));
}

TEST_F(DefaultHandlers, OfAnAgentLeadToItsOwnFolder) {
  MakeMachine(u"Agent");
  SetText(Hive::Machine, kInstallKey, u"AgentInstallPath", u"C:\\agent\\");
  Redirect(u"a");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"),
            Unterminated(u"\"C:\\agent\\bin\\UrlRedirection\\lumenar-url-protocol-launch-helper.exe\" %1"));
}

TEST_F(DefaultHandlers, WithoutAnInstallPathLeadToTheFallback) {
  MakeMachine(u"Client");
  Redirect(u"a");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), Unterminated(u"\"C:\\Program Files\\Corvane\\Corvane Lumenar Client\\"
                                          u"lumenar-url-protocol-launch-helper.exe\" %1"));
}

TEST_F(DefaultHandlers, StayAsTheyAreWhileRedirectionIsOff) {
  MakeMachine(u"Client", 0);
  Redirect(u"a");
  Register(Hive::User, u"b", kOldCommand);
  EXPECT_FALSE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), std::nullopt);
  EXPECT_EQ(CommandOf(u"b"), Terminated(kOldCommand));
}

TEST_F(DefaultHandlers, WithNothingToRedirectAndNothingRegisteredNothingHappens) {
  MakeClient();
  SetText(Hive::User, kClasses + Scheme(u"other"), u"", u"x");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_THAT(log.Texts(), ElementsAre("GetSupportedProtocols: RegQueryInfoKey failed.\n"));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + Scheme(u"other")));
}

TEST_F(DefaultHandlers, AreAllRemovedWhenNothingIsRedirectedAnyMore) {
  MakeClient();
  Register(Hive::User, u"a", kOwnCommand);
  Register(Hive::User, u"b", kOldCommand);
  Register(Hive::User, u"c", u"\"C:\\other.exe\" %1");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"a")));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"b")));
  EXPECT_EQ(CommandOf(u"c"), Terminated(u"\"C:\\other.exe\" %1"));
}

TEST_F(DefaultHandlers, LeaveASchemeToTheMachineThatHasClaimedItAndGiveItBack) {
  MakeClient();
  Redirect(u"a");
  Redirect(u"b");
  Register(Hive::Machine, u"a", u"\"C:\\other.exe\" %1");
  Register(Hive::User, u"a", kOwnCommand);
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"a")));
  EXPECT_EQ(CommandOf(u"b"), Unterminated(kOwnCommand));
  EXPECT_EQ(Stored(Hive::Machine, CommandKey(u"a")), Terminated(u"\"C:\\other.exe\" %1"));
}

TEST_F(DefaultHandlers, TheMachinesOwnClaimByThisProgramCountsAsTheMachines) {
  MakeClient();
  Redirect(u"a");
  Register(Hive::Machine, u"a", kOwnCommand);
  EXPECT_THAT(Supported(1), IsEmpty());
}

TEST_F(DefaultHandlers, AnEmptyCommandOfTheMachineClaimsNothing) {
  MakeClient();
  Redirect(u"a");
  Register(Hive::Machine, u"a", u"");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), Unterminated(kOwnCommand));
}

TEST_F(DefaultHandlers, LeaveASchemeToAnotherProgramOfTheUser) {
  MakeClient();
  Redirect(u"a");
  Redirect(u"b");
  Register(Hive::User, u"a", u"\"C:\\other.exe\" %1");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), Terminated(u"\"C:\\other.exe\" %1"));
  EXPECT_THAT(Supported(1), ElementsAre(Scheme(u"b")));
  EXPECT_THAT(Supported(0), ElementsAre(Scheme(u"a"), Scheme(u"b")));
}

TEST_F(DefaultHandlers, NeverTouchAnotherProgramsSchemeThatIsNotRedirected) {
  MakeClient();
  Redirect(u"a");
  Register(Hive::User, u"other", u"\"C:\\other.exe\" %1");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), Unterminated(kOwnCommand));
  EXPECT_TRUE(settings::RemoveAllDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), std::nullopt);
  EXPECT_EQ(CommandOf(u"other"), Terminated(u"\"C:\\other.exe\" %1"));
}

TEST_F(DefaultHandlers, FromAnOlderPlaceAreKeptUntilTheListsDiffer) {
  MakeClient();
  Redirect(u"a");
  Register(Hive::User, u"a", kOldCommand);
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), Terminated(kOldCommand));
  Redirect(u"b");
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_EQ(CommandOf(u"a"), Unterminated(kOwnCommand));
  EXPECT_EQ(CommandOf(u"b"), Unterminated(kOwnCommand));
}

// The registry lists both sides in one order, so lists of equal names differ by case alone.
TEST_F(DefaultHandlers, WhoseNamesDifferByCaseAreRewritten) {
  MakeClient();
  Redirect(u"Abc");
  Register(Hive::User, u"aBC", kOldCommand);
  EXPECT_TRUE(settings::SyncDefaultHandlers());
  EXPECT_THAT(Subkeys(Hive::User, u"Software\\Classes"), Contains(Scheme(u"Abc")));
  EXPECT_EQ(CommandOf(u"Abc"), Unterminated(kOwnCommand));
}

TEST_F(DefaultHandlers, AreRecognisedByTheProgramsNameAnywhereInTheCommandWithItsCase) {
  MakeClient();
  Register(Hive::User, u"a", u"x lumenar-url-protocol-launch-helper.exe.bak");
  Register(Hive::User, u"b", u"Lumenar-url-protocol-launch-helper.exe");
  support::SetBytes(Hive::User, CommandKey(u"c"), u"", platform::REG_BINARY,
                    Terminated(u"lumenar-url-protocol-launch-helper.exe").bytes);
  CreateKey(Hive::User, kClasses + Scheme(u"d"));
  SetText(Hive::User, u"Software\\Classes\\.lumenar-test" + kCommand, u"", kOwnCommand);
  EXPECT_THAT(Enumerated(), ElementsAre(Scheme(u"a")));
  support::DeleteKey(Hive::User, u"Software\\Classes\\.lumenar-test");
}

TEST_F(DefaultHandlers, ACommandOfMoreThan16383BytesCannotBeRead) {
  MakeClient();
  std::u16string command = kOwnCommand;
  command.resize(8190, u'x');
  Register(Hive::User, u"a", command);  // 16382 bytes with its NUL.
  Register(Hive::User, u"b", command + u"x");
  EXPECT_THAT(Enumerated(), ElementsAre(Scheme(u"a")));
  Redirect(u"b");
  EXPECT_THAT(Supported(1), ElementsAre(Scheme(u"b")));  // What cannot be read claims nothing,
  settings::SetListOfDefaultHandlers({Scheme(u"b")});    // and is overwritten.
  EXPECT_EQ(CommandOf(u"b"), Unterminated(kOwnCommand));
}

TEST_F(DefaultHandlers, ANameOf255UnitsDoesNotFitAndTheNextOneFollows) {
  MakeClient();
  std::u16string longest(254, u'l');
  CreateKey(Hive::Machine, kRoot + u"\\" + longest);
  CreateKey(Hive::Machine, kRoot + u"\\" + longest + u"l");
  Redirect(u"z");
  EXPECT_THAT(Supported(0), ElementsAre(longest, Scheme(u"z")));
  EXPECT_THAT(log.Texts(), ElementsAre("GetSupportedProtocols: RegEnumKeyEx failed.\n"));
}

TEST_F(DefaultHandlers, AreOfTheUsersRootBeforeTheMachines) {
  MakeClient();
  Redirect(u"machine");
  CreateKey(Hive::User, kRoot + u"\\" + Scheme(u"user"));
  EXPECT_THAT(Supported(1), ElementsAre(Scheme(u"user")));
}

TEST_F(DefaultHandlers, WithoutARootThereAreNoneAlsoWhereThereIsALegacyRoot) {
  CreateKey(Hive::Machine, kLegacyRoot + u"\\" + Scheme(u"a"));
  HandlerList list;
  EXPECT_FALSE(settings::GetSupportedProtocols(list, 1));
  EXPECT_THAT(list, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("GetSupportedProtocols: Failed to open url redirection root key.\n"));
}

TEST_F(DefaultHandlers, RemovalLogsASchemeWithoutACommandAndGoesOn) {
  MakeClient();
  Register(Hive::User, u"b", kOwnCommand);
  EXPECT_TRUE(settings::RemoveListOfDefaultHandlers({Scheme(u"a"), Scheme(u"b")}));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"b")));
  EXPECT_THAT(log.Texts(), ElementsAre("RemoveListOfDefaultHandlers: RegOpenKeyEx failed.\n"));
}

TEST_F(DefaultHandlers, RemovalLeavesWhatIsNotOursAnyMore) {
  MakeClient();
  Register(Hive::User, u"a", u"\"C:\\other.exe\" %1");
  CreateKey(Hive::User, CommandKey(u"b"));
  EXPECT_TRUE(settings::RemoveListOfDefaultHandlers({Scheme(u"a"), Scheme(u"b")}));
  EXPECT_TRUE(KeyExists(Hive::User, CommandKey(u"a")));
  EXPECT_TRUE(KeyExists(Hive::User, CommandKey(u"b")));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(DefaultHandlers, RemovalOfAllGivesBackEveryOneThatIsOurs) {
  MakeClient();
  Register(Hive::User, u"a", kOwnCommand);
  Register(Hive::User, u"b", u"\"C:\\other.exe\" %1");
  Register(Hive::User, u"c", kOldCommand);
  EXPECT_TRUE(settings::RemoveAllDefaultHandlers());
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"a")));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + Scheme(u"b")));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"c")));
}

TEST_F(DefaultHandlers, SettingLeavesACommandOfWhicheverProgram) {
  MakeClient();
  Register(Hive::User, u"a", u"");
  Register(Hive::User, u"b", kOldCommand);
  EXPECT_TRUE(settings::SetListOfDefaultHandlers({Scheme(u"a"), Scheme(u"b")}));
  EXPECT_EQ(CommandOf(u"a"), Terminated(u""));
  EXPECT_EQ(CommandOf(u"b"), Terminated(kOldCommand));
}

// The launch scheme's command holds the name of the program that registered it. It is among the program's own from then
// on, so a later start sees a difference, and the end of an agent removes it.
TEST_F(DefaultHandlers, TheLaunchSchemeIsOneOfOurs) {
  MakeClient();
  Redirect(u"a");
  Register(Hive::User, u"a", kOldCommand);
  SetText(Hive::User, kClasses + kLaunchScheme + kCommand, u"",
          u"\"C:\\client\\lumenar-url-protocol-launch-helper.exe\" \"%1\"");
  EXPECT_THAT(Enumerated(), ElementsAre(Scheme(u"a"), kLaunchScheme));
  EXPECT_TRUE(settings::SyncDefaultHandlers());  // The lists differ, so what was kept is written anew.
  EXPECT_EQ(CommandOf(u"a"), Unterminated(kOwnCommand));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + kLaunchScheme));

  SetText(Hive::User, kClasses + kLaunchScheme + kCommand, u"", kOwnCommand);
  EXPECT_TRUE(settings::RemoveAllDefaultHandlers());
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + kLaunchScheme));
}

}  // namespace
}  // namespace resident
