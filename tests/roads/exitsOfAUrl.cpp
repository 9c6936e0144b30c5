// What becomes of the text behind the launch prefix, by origin, text and rules.
#include <gmock/gmock.h>

#include "platform/format.h"
#include "platform/handles.h"
#include "platform/session.h"
#include "tests/roads/roadMachine.h"

namespace roads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What a post logs where no service listens: it was tried, and at which endpoint.
Texts LogOfAPost(const std::string& url, Texts before = {}) {
  platform::DWORD session = 0;
  EXPECT_TRUE(platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &session));
  const auto endpoint = platform::FormatNarrow("Try to connect guid: %08X-EC5E-4088-B123-80B4AE233D0B.\n", ~session);
  before.push_back("RdeCmdClient::PostRedirectionRequest: Post redirection " + url + " to rdeServer.\n");
  before.push_back(endpoint.value_or(""));
  before.push_back("RdeCmdClient::PostRdeCmdRequest: Failed to connect the rdeServer, error = 10.\n");
  return before;
}

struct Exit {
  const char16_t* origin;
  const char16_t* text;
  const char16_t* allowlist;
  Texts log;
  const char16_t* client;  // The remote client's URL, null where none is started.
};

std::vector<Exit> Exits() {
  return {
      {u"Agent", u"apppathrd/path=a/b", u"path=a",
       LogOfAPost("apppathrd/path=a/b", {kEnabled, "Match the rule path=a successfully.\n",
                                         "Redirect the app path: 'apppathrd/path=a/b'.\n"}),
       nullptr},
      {u"Agent",
       u"apppathrd/path=a/b",
       u"path=x",
       {kEnabled, "Do not redirect the app path: 'apppathrd/path=a/b'.\n",
        "SendMessageToRedirectUriToClient: Do not redirect the app path 'apppathrd/path=a/b'\n"},
       nullptr},
      {u"Agent",
       u"apppathrd/path=a/b",
       u"",
       {kEnabled, "Do not redirect the app path: 'apppathrd/path=a/b'.\n",
        "SendMessageToRedirectUriToClient: Do not redirect the app path 'apppathrd/path=a/b'\n"},
       nullptr},
      {u"Agent", u"https://intranet.example/", u"path=x", LogOfAPost("https://intranet.example/"), nullptr},
      // Decoded on this side.
      {u"Agent", u"https%3A//intranet.example/", u"", LogOfAPost("https://intranet.example/"), nullptr},
      {u"Agent", u"APPPATHRD/path=x", u"nothing", LogOfAPost("APPPATHRD/path=x"), nullptr},
      {u"Client",
       u"apppathrd/path=a/b",
       u"x;path=a;(",
       {kEnabled, "Match the rule path=a successfully.\n", "Redirect the app path: 'apppathrd/path=a/b'.\n"},
       u"lumenar-client://host1/calc?url=apppathrd%2Fpath=a%252Fb"},
      {u"Client",
       u"apppathrd/path=",
       u"^apppathrd/path=$",
       {kEnabled, "Match the rule ^apppathrd/path=$ successfully.\n", "Redirect the app path: 'apppathrd/path='.\n"},
       u"lumenar-client://host1/calc?url=apppathrd%2Fpath="},
      {u"Client",
       u"apppathrd/path=a/b",
       u"A/B;^a/b",
       {kEnabled, "Do not redirect the app path: 'apppathrd/path=a/b'.\n"},
       nullptr},
      {u"Client",
       u"apppathrd/path=a/b",
       u";;",
       {kEnabled, "Do not redirect the app path: 'apppathrd/path=a/b'.\n"},
       nullptr},
      {u"Client",
       u"https://intranet.example/",
       u".*",
       {"SendMessageToRedirectAppPathToAgent: The app path is invalid: https://intranet.example/\n"},
       nullptr},
      {u"Client",
       u"APPPATHRD/path=x",
       u".*",
       {"SendMessageToRedirectAppPathToAgent: The app path is invalid: APPPATHRD/path=x\n"},
       nullptr},
      // Not decoded on this side.
      {u"Client",
       u"apppathrd%3Apath=x",
       u".*",
       {"SendMessageToRedirectAppPathToAgent: The app path is invalid: apppathrd%3Apath=x\n"},
       nullptr},
      {u"client", u"apppathrd/path=a/b", u".*", {}, nullptr},
      {u"SomeAgent", u"https://intranet.example/", u".*", {}, nullptr},
  };
}

TEST(ExitsOfAUrl, FollowOriginTextAndRules) {
  RoadMachine machine;
  for (const Exit& exit : Exits()) {
    SCOPED_TRACE(support::Narrow(exit.origin) + " / " + support::Narrow(exit.text) + " / " +
                 support::Narrow(exit.allowlist));
    machine.SetUp(exit.origin, exit.allowlist);
    machine.StartResident();
    static_cast<void>(machine.NewLog());  // What its start had to say.

    EXPECT_EQ(machine.Launch(exit.text), 0);

    Texts expected = exit.log;
    if (exit.client != nullptr) {
      // A client that another exit had started would be the one that comes here.
      const std::u16string line = machine.Client() + u" \"" + exit.client + u'"';
      EXPECT_EQ(machine.NextClient(), line);
      expected.push_back("StartRemoteApp: " + support::Narrow(line) + "\n");
    }
    EXPECT_EQ(machine.NewLog(), expected);
    EXPECT_EQ(machine.EndResident(), 0);
  }
  machine.StartResident();
  EXPECT_TRUE(machine.NoOtherClient());
}

TEST(ExitsOfAUrl, WithoutASettingAreSilent) {
  RoadMachine machine;
  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);
  EXPECT_EQ(machine.Launch(u"https://intranet.example/"), 0);
  EXPECT_THAT(machine.NewLog(), IsEmpty());
}

TEST(ExitsOfAUrl, FailedSettingsCountAsFailedRules) {
  RoadMachine machine;
  machine.SetUp(u"Client", u".*");
  support::DeleteKey(support::Hive::Machine, u"Software\\Policies\\Corvane");
  machine.StartResident();
  static_cast<void>(machine.NewLog());
  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);
  EXPECT_THAT(machine.NewLog(),
              ElementsAre(kEnabled, "Failed to get app path settings.\n", "Check settings failed.\n"));
  EXPECT_TRUE(machine.NoOtherClient());
}

// Each is the same whether a resident is there or not: but traces and clients are the resident's.
TEST(ExitsOfAUrl, WithoutAResidentNothingIsTracedOrStarted) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);
  EXPECT_THAT(machine.NewLog(), IsEmpty());
  machine.SetAllowlist(u"nothing");
  machine.SetOrigin(u"Agent");
  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);
  EXPECT_THAT(machine.NewLog(),
              ElementsAre("SendMessageToRedirectUriToClient: Do not redirect the app path 'apppathrd/path=a/b'\n"));
}

TEST(ExitsOfAUrl, WithDebugLogOffOnlyFailuresAreLogged) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.SetDebugLog(false);
  machine.StartResident();
  static_cast<void>(machine.NewLog());

  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);
  EXPECT_NE(machine.NextClient().find(u"path=a%252Fb"), std::u16string::npos);
  machine.SetAllowlist(u"nothing");
  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);
  EXPECT_THAT(machine.NewLog(), IsEmpty());

  EXPECT_EQ(machine.Launch(u"http://x"), 0);
  EXPECT_THAT(machine.NewLog(),
              ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: http://x\n"));
}

TEST(RemoteClient, IsStartedByTheCommandLineOfPolicyAndRequest) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  const std::filesystem::path folder = machine.HostPath(u"C:\\Client\\");
  ASSERT_FALSE(std::filesystem::exists(folder));
  machine.InstallClient(u"C:\\Client\\");
  machine.StartResident();

  EXPECT_EQ(machine.Launch(u"apppathrd/path=a/b"), 0);

  EXPECT_EQ(machine.NextClient(),
            u"\"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host1/calc?url=apppathrd%2Fpath=a%252Fb\"");
  EXPECT_EQ(machine.EndResident(), 0);
  std::filesystem::remove_all(folder);
}

TEST(RemoteClient, GetsThePathEncodedTwiceAndTheItemOnce) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  support::SetText(support::Hive::Machine, u"Software\\Policies\\Corvane\\Lumenar\\URLRedirection\\apppath",
                   u"remoteItem", u"Office/Calc App");
  machine.StartResident();
  EXPECT_EQ(machine.Launch(u"apppathrd/path=C:\\a b,[1]#?&+%20"), 0);
  EXPECT_EQ(machine.NextClient(), machine.Client() +
                                      u" \"lumenar-client://host1/office%2fcalc%20app?url=apppathrd%2Fpath="
                                      u"C%253A%255Ca%2520b%252C%255B1%255D%2523%253F%2526%252B%252520\"");
}

}  // namespace
}  // namespace roads
