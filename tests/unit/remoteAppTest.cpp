#include "launcher/remoteApp.h"

#include <string>

#include "tests/unit/frontEndTest.h"
#include "tests/unit/helperClass.h"

namespace unit {
namespace {

using launcher::StartRemoteApp;
using settings::UrlOrigin;
using support::SetText;
using testing::ElementsAre;
using testing::IsEmpty;

class RemoteApp : public TracedTest {
 protected:
  RemoteApp() { StoreInstallPath(u"C:\\Client\\"); }

  static void StoreInstallPath(std::u16string_view path) {
    SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", path);
  }
  // The command line that a launch with these texts hands over; empty when it hands over nothing.
  std::string LineFor(std::u16string_view command, std::u16string_view host = u"host1",
                      std::u16string_view item = u"Calc") {
    helper.Forget();
    EXPECT_EQ(StartRemoteApp(command, host, item, UrlOrigin::Client), 0);
    return Line();
  }
  // What was handed over, with its NUL taken off.
  std::string Line() const {
    const auto launches = helper.Launches();
    if (launches.empty()) return "";
    EXPECT_EQ(launches.size(), 1u);
    EXPECT_EQ(launches[0].sender, 0u);
    EXPECT_EQ(launches[0].size, launches[0].units.size() * 2);
    EXPECT_TRUE(launches[0].units.ends_with(u'\0'));
    return support::Narrow(launches[0].units.substr(0, launches[0].units.size() - 1));
  }
};

TEST_F(RemoteApp, HandsOverTheClientsCommandLine) {
  EXPECT_EQ(LineFor(u"apppathrd/path=a%2Fb"),
            "\"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host1/calc?url=apppathrd%2Fpath=a%252Fb\"");
}

TEST_F(RemoteApp, TracesTheCommandLineAheadOfTheLaunch) {
  const std::string line = LineFor(u"x");
  EXPECT_THAT(helper.Traces(), ElementsAre("StartRemoteApp: " + line + "\n"));
  EXPECT_EQ(helper.HandOffs()[0].tag, 502u);
  EXPECT_EQ(helper.HandOffs()[1].tag, 501u);
}

TEST_F(RemoteApp, TracesNothingWithLoggingOff) {
  SetLogging(false);
  EXPECT_NE(LineFor(u"x"), "");
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(RemoteApp, ACommandInQuotesLosesThem) {
  EXPECT_THAT(LineFor(u"\"a b\""), testing::EndsWith("?url=a%20b\""));
  EXPECT_THAT(LineFor(u"\"\""), testing::EndsWith("?url=\""));
  EXPECT_THAT(LineFor(u"\"\"a\"\""), testing::EndsWith("?url=%22a%22\""));
}

TEST_F(RemoteApp, ACommandWithOneQuoteKeepsItEncoded) {
  EXPECT_THAT(LineFor(u"\"ab"), testing::EndsWith("?url=%22ab\""));
  EXPECT_THAT(LineFor(u"ab\""), testing::EndsWith("?url=ab%22\""));
  EXPECT_THAT(LineFor(u"a\"b"), testing::EndsWith("?url=a%22b\""));
}

TEST_F(RemoteApp, AnEmptyCommandIsAnEmptyUrl) {
  EXPECT_EQ(LineFor(u""), "\"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host1/calc?url=\"");
}

TEST_F(RemoteApp, AnEmptyItemLeavesItsPlaceEmpty) {
  EXPECT_EQ(LineFor(u"x", u"host", u""), "\"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host/?url=x\"");
}

TEST_F(RemoteApp, TheItemIsLoweredWithTheDigitsOfItsEscapesAndTheUrlIsNot) {
  EXPECT_EQ(LineFor(u"A/B", u"host", u"My Item/X+Y"),
            "\"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host/my%20item%2fx%2by?url=A%2FB\"");
}

TEST_F(RemoteApp, LettersBeyondAsciiAreNotLowered) {
  EXPECT_THAT(LineFor(u"x", u"host", u"\u00C4\u0416Z"), testing::HasSubstr("/\xC3\x84\xD0\x96z?url="));
}

TEST_F(RemoteApp, TheHostIsNeitherEncodedNorLowered) {
  EXPECT_THAT(LineFor(u"x", u"Host 1:8443/a%"), testing::HasSubstr("://Host 1:8443/a%/calc?url=x"));
}

TEST_F(RemoteApp, TextBeyondTheBytesIsCarried) {
  helper.Forget();
  const std::u16string command = u"\u4E2D\U0001F600" + std::u16string(1, char16_t{0xD800});
  EXPECT_EQ(StartRemoteApp(command, u"h", u"i", UrlOrigin::Client), 0);
  ASSERT_EQ(helper.Launches().size(), 1u);
  EXPECT_NE(helper.Launches()[0].units.find(u"?url=" + command + u"\""), std::u16string::npos);
}

TEST_F(RemoteApp, TheLongestCommandIsCarried) {
  EXPECT_EQ(LineFor(std::u16string(32767, u'/')).size(), LineFor(u"").size() + std::size_t{3} * 32767);
}

// ---- The install path. ----

TEST_F(RemoteApp, APathWithoutItsLastBackslashIsUsedAsItStands) {
  StoreInstallPath(u"C:\\Client");
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"C:\\Clientlumenar-client.exe\" "));
}

TEST_F(RemoteApp, AnEmptyPathIsUsedAsItStands) {
  StoreInstallPath(u"");
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"lumenar-client.exe\" "));
}

TEST_F(RemoteApp, ThePathIsThatOfTheThirtyTwoBitKeyWhereTheOtherHasNone) {
  SetText(Hive::Machine, kInstallKey32, u"ClientInstallPath", u"C:\\Client32\\");
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"C:\\Client\\"));
  support::DeleteKey(Hive::Machine, kInstallKey);
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"C:\\Client32\\"));
  support::CreateKey(Hive::Machine, kInstallKey);
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"C:\\Client32\\"));
}

TEST_F(RemoteApp, APathOfMoreThan260BytesIsUnreadable) {
  StoreInstallPath(std::u16string(129, u'x'));  // 260 bytes with its NUL.
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"" + std::string(129, 'x') + "lumenar-client.exe"));
  for (const std::size_t units : {130u, 131u, 259u, 260u, 400u}) {
    StoreInstallPath(std::u16string(units, u'x'));
    EXPECT_EQ(LineFor(u"x"), "") << units;
  }
  SetText(Hive::Machine, kInstallKey32, u"ClientInstallPath", u"C:\\Client32\\");
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"C:\\Client32\\"));
}

TEST_F(RemoteApp, APathOf261To263BytesIsUnreadable) {
  for (const std::size_t bytes : {261u, 262u, 263u}) {
    support::SetBytes(Hive::Machine, kInstallKey, u"ClientInstallPath", platform::REG_SZ,
                      std::vector<std::uint8_t>(bytes, 'x'));
    EXPECT_EQ(LineFor(u"x"), "") << bytes;
  }
}

TEST_F(RemoteApp, APathWithoutATerminatorIsReadWhole) {
  support::SetBytes(Hive::Machine, kInstallKey, u"ClientInstallPath", platform::REG_BINARY, {'C', 0, ':', 0, '\\', 0});
  EXPECT_THAT(LineFor(u"x"), testing::StartsWith("\"C:\\lumenar-client.exe\" "));
}

TEST_F(RemoteApp, WithoutAPathNothingIsHandedOverAndNothingSaid) {
  support::DeleteKey(Hive::Machine, kInstallKey);
  SetText(Hive::User, kInstallKey, u"ClientInstallPath", u"C:\\User\\");
  EXPECT_EQ(LineFor(u"x"), "");
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
  EXPECT_THAT(log.Files(), IsEmpty());
}

// ---- Other origins, and other helpers. ----

TEST_F(RemoteApp, OfAnAgentTakesTheCommandForTheLine) {
  EXPECT_EQ(StartRemoteApp(u"\"a b\" /c", u"host", u"item", UrlOrigin::Agent), 0);
  EXPECT_EQ(Line(), "\"a b\" /c");
  EXPECT_THAT(helper.Traces(), ElementsAre("StartRemoteApp: \"a b\" /c\n"));
}

TEST_F(RemoteApp, OfAnUnknownOriginDoesNothing) {
  EXPECT_EQ(StartRemoteApp(u"x", u"host", u"item", UrlOrigin::Unknown), 0);
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
}

class RemoteAppWithout : public FrontEndTest {
 protected:
  RemoteAppWithout() { SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\Client\\"); }
};

TEST_F(RemoteAppWithout, AHelperIsZero) {
  SetLogging(true);
  EXPECT_EQ(StartRemoteApp(u"x", u"host", u"item", UrlOrigin::Client), 0);
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(RemoteAppWithout, AnAnswerIsOne) {
  SetLogging(false);
  const HelperClassThread helper(&AnswerLate);
  EXPECT_EQ(StartRemoteApp(u"x", u"host", u"item", UrlOrigin::Client), 1);
  mayAnswer.Give();
}

}  // namespace
}  // namespace unit
