// The handlers when a call of the system fails, and a user without classes.
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "settings/defaultHandlers.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using settings::HandlerList;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using DefaultHandlerFaults = ResidentTest;

template <class Work>
void WithFaultAt(const std::string& call, std::size_t occurrence, Work work) {
  platform::test::ArmFaults(0, false, 0);
  work();
  const std::vector<std::string> calls = platform::test::CountedCalls();
  platform::test::DisarmFaults();
  unsigned number = 0;
  for (unsigned i = 0; i < calls.size() && number == 0; ++i) {
    if (calls[i] == call && occurrence-- == 0) number = i + 1;
  }
  ASSERT_NE(number, 0u) << call;
  support::DeleteKey(Hive::User, u"Software\\Classes");
  support::CreateKey(Hive::User, u"Software\\Classes");
  platform::test::ArmFaults(number, false, platform::ERROR_GEN_FAILURE);
  work();
  platform::test::DisarmFaults();
}

TEST_F(DefaultHandlerFaults, WithoutClassesThereIsNothingToEnumerateAndNoMessage) {
  HandlerList list;
  EXPECT_FALSE(settings::EnumerateDefaultHandlers(list));
  EXPECT_FALSE(settings::RemoveAllDefaultHandlers());
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(DefaultHandlerFaults, ASchemeKeyThatCannotBeMadeIsLoggedAndTheNextFollows) {
  MakeMachine(u"Client");
  WithFaultAt("RegCreateKeyExW", 0, [] { settings::SetListOfDefaultHandlers({u"a", u"b"}); });
  EXPECT_THAT(log.Texts(), ElementsAre("SetListOfDefaultHandlers: RegCreateKeyEx failed.\n"));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + u"a"));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + u"b" + kCommand));
}

TEST_F(DefaultHandlerFaults, ACommandKeyThatCannotBeMadeIsLogged) {
  MakeMachine(u"Client");
  WithFaultAt("RegCreateKeyExW", 1, [] { settings::SetListOfDefaultHandlers({u"a"}); });
  EXPECT_THAT(log.Texts(), ElementsAre("SetListOfDefaultHandlers: RegCreateKeyEx-2 failed.\n"));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + u"a"));
}

TEST_F(DefaultHandlerFaults, AValueThatCannotBeWrittenLeavesTheSchemeHalfDoneAndItsKeyOpen) {
  MakeMachine(u"Client");
  support::PromiseLeftOpen("RegistryKey", 2);
  for (const std::size_t value : {0u, 1u}) {
    WithFaultAt("RegSetValueExW", value, [] { settings::SetListOfDefaultHandlers({u"a"}); });
    EXPECT_TRUE(KeyExists(Hive::User, kClasses + u"a"));
    EXPECT_FALSE(KeyExists(Hive::User, kClasses + u"a" + kCommand));
    EXPECT_THAT(log.Texts(), IsEmpty());
    support::DeleteKey(Hive::User, kClasses + u"a");
  }
}

TEST_F(DefaultHandlerFaults, ATreeThatCannotBeDeletedIsLoggedWithTheThreadsLastError) {
  const auto remove = [] {
    support::SetText(Hive::User, kClasses + u"a" + kCommand, u"", u"lumenar-url-protocol-launch-helper.exe");
    settings::RemoveListOfDefaultHandlers({u"a"});
  };
  platform::SetLastError(77);  // Of a call long before: the registry's calls do not set it.
  WithFaultAt("RegDeleteTreeW", 0, remove);
  EXPECT_THAT(log.Texts(), ElementsAre("RemoveListOfDefaultHandlers: RegDeleteTree failed. Err = 77\n"));
}

TEST_F(DefaultHandlerFaults, AnAnswerlessEnumerationIsLogged) {
  MakeMachine(u"Client");
  HandlerList list;
  WithFaultAt("RegEnumKeyExW", 0, [&list] {
    support::SetText(Hive::User, kClasses + u"a" + kCommand, u"", u"lumenar-url-protocol-launch-helper.exe");
    list.clear();
    settings::EnumerateDefaultHandlers(list);
  });
  EXPECT_THAT(list, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("EnumerateDefaultHandlers: RegEnumKeyEx failed.\n"));
}

TEST_F(DefaultHandlerFaults, TheLaunchSchemesKeysThatCannotBeHadAreLogged) {
  WithFaultAt("RegCreateKeyExW", 0, [] { settings::SetCustomProtocolKey(true); });
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create key for custom protocol url launch\n"));
  WithFaultAt("RegOpenKeyExW", 0, [] { settings::SetCustomProtocolKey(true); });
  EXPECT_THAT(log.Texts(), Contains("Failed to open key for custom protocol\n"));
}

TEST_F(DefaultHandlerFaults, TheLaunchSchemesValuesThatCannotBeWrittenAreBothTriedAndNotReported) {
  platform::test::ArmFaultsOf("RegSetValueExW", platform::ERROR_GEN_FAILURE);
  settings::SetCustomProtocolKey(true);
  platform::test::DisarmFaults();
  EXPECT_THAT(platform::test::CountedCalls(), Contains("!RegSetValueExW").Times(2));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + kLaunchScheme + kCommand));
  EXPECT_EQ(Stored(Hive::User, kClasses + kLaunchScheme, u"URL Protocol"), std::nullopt);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

// A list that is gathered while nobody can tell how many subkeys a key has.
template <class Gather>
HandlerList GatheredWithoutACount(Gather gather) {
  HandlerList list;
  platform::test::ArmFaultsOf("RegQueryInfoKeyW", platform::ERROR_GEN_FAILURE);
  EXPECT_TRUE(gather(list));
  platform::test::DisarmFaults();
  return list;
}

TEST_F(DefaultHandlerFaults, ClassesThatCannotBeCountedAreNoneAndLogged) {
  support::SetText(Hive::User, kClasses + u"a" + kCommand, u"", u"lumenar-url-protocol-launch-helper.exe");
  EXPECT_THAT(GatheredWithoutACount(&settings::EnumerateDefaultHandlers), IsEmpty());
  EXPECT_THAT(log.Texts(),
              ElementsAre("EnumerateDefaultHandlers: RegQueryInfoKey failed for key 'SOFTWARE\\Classes'.\n"));
}

TEST_F(DefaultHandlerFaults, SchemesToRedirectThatCannotBeCountedAreNoneAndLogged) {
  MakeMachine(u"Client");
  support::CreateKey(Hive::Machine, kRoot + u"\\" + Scheme(u"a"));
  EXPECT_THAT(GatheredWithoutACount([](HandlerList& list) { return settings::GetSupportedProtocols(list, 1); }),
              IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("GetSupportedProtocols: RegQueryInfoKey failed.\n"));
}

}  // namespace
}  // namespace resident
