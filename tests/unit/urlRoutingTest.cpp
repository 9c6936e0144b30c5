#include "launcher/urlRouting.h"

#include <string>

#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using launcher::RedirectAppPath;
using launcher::SendMessageToRedirectAppPathToAgent;
using launcher::SendMessageToRedirectUriToClient;
using support::SetText;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kLine = "\"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host1/calc?url=apppathrd%2Fpath=";

class UrlRouting : public TracedTest {
 protected:
  UrlRouting() {
    support::SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
    StoreOrigin(u"Client");
    StoreRules(u"^apppathrd/path=a");
    SetText(Hive::Machine, kPolicy, u"brokerHostname", u"host1");
    SetText(Hive::Machine, kPolicy, u"remoteItem", u"Calc");
    SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\Client\\");
  }
  static void StoreOrigin(const char16_t* origin) { SetText(Hive::Machine, kRoot, u"Origin", origin); }
  static void StoreRules(std::u16string_view rules) { SetText(Hive::Machine, kPolicy, u"allowlist", rules); }
  std::string Line() const {
    const auto launches = helper.Launches();
    if (launches.empty()) return "";
    EXPECT_EQ(launches.size(), 1u);
    return support::Narrow(launches[0].units.substr(0, launches[0].units.find(u'\0')));
  }
};

// ---- RedirectAppPath. ----

TEST_F(UrlRouting, NoTextIsTracedAndRefused) {
  EXPECT_FALSE(RedirectAppPath(nullptr));
  EXPECT_THAT(helper.Traces(), ElementsAre("Redirect the app path value is empty.\n"));
}

TEST_F(UrlRouting, ARequestThatTheRulesAllowStartsTheRemoteClient) {
  EXPECT_TRUE(RedirectAppPath(u"apppathrd/path=a/b"));
  const std::string line = std::string(kLine) + "a%252Fb\"";
  EXPECT_EQ(Line(), line);
  EXPECT_THAT(helper.Traces(),
              ElementsAre(kEnabled, "Match the rule ^apppathrd/path=a successfully.\n",
                          "Redirect the app path: 'apppathrd/path=a/b'.\n", "StartRemoteApp: " + line + "\n"));
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(UrlRouting, ARequestThatTheRulesRefuseIsTraced) {
  EXPECT_FALSE(RedirectAppPath(u"apppathrd/path=b"));
  EXPECT_EQ(Line(), "");
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, "Do not redirect the app path: 'apppathrd/path=b'.\n"));
}

TEST_F(UrlRouting, ARequestWithoutSettingsIsTracedAndRefused) {
  support::DeleteKey(Hive::Machine, kPolicy);
  EXPECT_FALSE(RedirectAppPath(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, "Failed to get app path settings.\n", "Check settings failed.\n"));
}

TEST_F(UrlRouting, ARequestOfAnUnknownOriginIsTracedAndRefused) {
  StoreOrigin(u"agent");
  EXPECT_FALSE(RedirectAppPath(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Traces(),
              ElementsAre("CheckAppPathSettings: Url Redirection origin is unknown.\n", "Check settings failed.\n"));
}

TEST_F(UrlRouting, ARequestWithRedirectionOffIsRefused) {
  support::SetNumber(Hive::Machine, kRoot, u"Enabled", 0);
  EXPECT_FALSE(RedirectAppPath(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Traces(), ElementsAre("Check settings failed.\n"));
}

TEST_F(UrlRouting, NoRequestPassesAnEmptyAllowList) {
  StoreRules(u"");
  EXPECT_FALSE(RedirectAppPath(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, "Do not redirect the app path: 'apppathrd/path=a'.\n"));
}

TEST_F(UrlRouting, ABareRequestThatARuleMatchesIsThePrefixAlone) {
  StoreRules(u"^apppathrd/path=$");
  EXPECT_TRUE(RedirectAppPath(u"apppathrd/path="));
  EXPECT_EQ(Line(), std::string(kLine) + "\"");
}

TEST_F(UrlRouting, APassingRequestOnAnAgentStartsNothing) {
  StoreOrigin(u"Agent");
  EXPECT_TRUE(RedirectAppPath(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Launches(), IsEmpty());
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, "Match the rule ^apppathrd/path=a successfully.\n",
                                           "Redirect the app path: 'apppathrd/path=a'.\n"));
}

TEST_F(UrlRouting, APassingRequestWithoutAnInstallPathPassesAllTheSame) {
  support::DeleteKey(Hive::Machine, kInstallKey);
  support::SetNumber(Hive::Machine, kRoot, u"Enabled", 1);  // It lies below.
  StoreOrigin(u"Client");
  EXPECT_TRUE(RedirectAppPath(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Launches(), IsEmpty());
}

TEST_F(UrlRouting, ATextShorterThanThePrefixThatARuleMatchesHasNoPath) {
  StoreRules(u".*");
  EXPECT_TRUE(RedirectAppPath(u"x"));
  EXPECT_EQ(Line(), std::string(kLine) + "\"");
}

// ---- The entry on a client. ----

TEST_F(UrlRouting, OnAClientARequestIsRouted) {
  EXPECT_TRUE(SendMessageToRedirectAppPathToAgent(u"apppathrd/path=a%20b"));
  EXPECT_EQ(Line(), std::string(kLine) + "a%252520b\"");
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(UrlRouting, OnAClientARefusedRequestHasNoLineOfItsOwn) {
  EXPECT_FALSE(SendMessageToRedirectAppPathToAgent(u"apppathrd/path=b"));
  EXPECT_THAT(log.Files(), IsEmpty());
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, "Do not redirect the app path: 'apppathrd/path=b'.\n"));
}

TEST_F(UrlRouting, OnAClientAnythingElseIsInvalid) {
  for (const std::u16string text : {u"https://x", u"APPPATHRD/path=a", u"apppathrd/path", u" apppathrd/path=a"}) {
    EXPECT_FALSE(SendMessageToRedirectAppPathToAgent(text));
  }
  EXPECT_THAT(log.Texts(),
              ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: https://x\n",
                          "SendMessageToRedirectAppPathToAgent: The app path is invalid: APPPATHRD/path=a\n",
                          "SendMessageToRedirectAppPathToAgent: The app path is invalid: apppathrd/path\n",
                          "SendMessageToRedirectAppPathToAgent: The app path is invalid:  apppathrd/path=a\n"));
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
}

TEST_F(UrlRouting, OnAClientAnEmptyTextIsInvalidAndItsConversionIsTraced) {
  EXPECT_FALSE(SendMessageToRedirectAppPathToAgent(u""));
  EXPECT_THAT(log.Texts(), ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: \n"));
  EXPECT_THAT(helper.Traces(), ElementsAre("WStringToString: The input wstring is empty.\n"));
}

// The line is UTF-8 whose bytes are no units of the file, so it ends in front of the first of them.
TEST_F(UrlRouting, OnAClientAnInvalidTextBeyondAsciiIsCutInTheLog) {
  EXPECT_FALSE(SendMessageToRedirectAppPathToAgent(u"ab\u00E4c"));
  EXPECT_THAT(log.Texts(), ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: ab"));
}

// ---- The entry on an agent. ----

TEST_F(UrlRouting, OnAnAgentARefusedRequestHasTwoLines) {
  StoreOrigin(u"Agent");
  EXPECT_FALSE(SendMessageToRedirectUriToClient(u"apppathrd/path=b"));
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, "Do not redirect the app path: 'apppathrd/path=b'.\n"));
  EXPECT_THAT(log.Texts(),
              ElementsAre("SendMessageToRedirectUriToClient: Do not redirect the app path 'apppathrd/path=b'\n"));
}

// There is no service on this machine, so that nothing can be posted.
TEST_F(UrlRouting, OnAnAgentAPlainUrlIsPostedWithoutAskingRulesOrSettings) {
  StoreOrigin(u"Agent");
  StoreRules(u"(");  // It would throw.
  for (const std::u16string url : {u"https://x", u"APPPATHRD/path=a", u""}) {
    EXPECT_FALSE(SendMessageToRedirectUriToClient(url));
  }
  EXPECT_THAT(helper.Traces(), Not(Contains(HasSubstr("edirect the app path"))));
  EXPECT_THAT(helper.Traces(), Not(Contains(HasSubstr("CheckAppPathSettings"))));
  EXPECT_THAT(log.Texts(), Not(Contains(HasSubstr("SendMessageToRedirectUriToClient"))));
}

TEST_F(UrlRouting, OnAnAgentAPassingRequestIsPostedAndStartsNothing) {
  StoreOrigin(u"Agent");
  EXPECT_FALSE(SendMessageToRedirectUriToClient(u"apppathrd/path=a"));
  EXPECT_THAT(helper.Launches(), IsEmpty());
  EXPECT_THAT(helper.Traces(), Contains("Redirect the app path: 'apppathrd/path=a'.\n"));
  EXPECT_THAT(log.Texts(), Not(Contains(HasSubstr("Do not redirect"))));
}

// The origin may change between the choice of the entry and the look at the settings, which counts.
TEST_F(UrlRouting, TheOriginOfTheSettingsDecidesWhetherTheClientIsStarted) {
  SendMessageToRedirectUriToClient(u"apppathrd/path=a");  // By now the machine is a client.
  EXPECT_EQ(Line(), std::string(kLine) + "a\"");
}

}  // namespace
}  // namespace unit
