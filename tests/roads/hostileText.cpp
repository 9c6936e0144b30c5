// Texts that nobody would type, on their way from the command line to the remote client.
#include <gmock/gmock.h>

#include "tests/roads/roadMachine.h"
#include "tests/roads/watchedProcess.h"

namespace roads {
namespace {

using testing::ElementsAre;

class HostileText : public testing::Test {
 protected:
  explicit HostileText(bool debugLog = false) {
    machine_.SetUp(u"Client", u".");
    machine_.SetDebugLog(debugLog);
    machine_.StartResident();
    static_cast<void>(machine_.NewLog());
  }
  ~HostileText() override { EXPECT_EQ(machine_.EndResident(), 0); }

  [[nodiscard]] std::u16string ClientLine(std::u16string_view encodedPath) const {
    return machine_.Client()
        .append(u" \"lumenar-client://host1/calc?url=apppathrd%2Fpath=")
        .append(encodedPath)
        .append(u"\"");
  }

  // What the client gets for that path, which holds nothing to encode.
  [[nodiscard]] std::u16string Arrives(const std::u16string& path) {
    EXPECT_EQ(machine_.Launch(u"apppathrd/path=" + path), 0);
    return machine_.NextClient();
  }

  // The longest command line that a process can have: as many 'a' as there is room for, and that tail.
  [[nodiscard]] static std::u16string LongestPath(std::u16string_view tail) {
    const std::size_t taken =
        OptionsFor(ProgramPath(), {std::u16string(kLaunchPrefix) + u"apppathrd/path="}).rawCommandLine->size();
    return std::u16string(32766 - taken - tail.size(), u'a').append(tail);
  }

  RoadMachine machine_;
};

TEST_F(HostileText, OutsideTheFirstPlaneArrivesUnitByUnit) {
  const std::u16string path = u"\U0001F600\u00e4\uFFFD\U0010FFFF";
  EXPECT_EQ(Arrives(path), ClientLine(path));
}

TEST_F(HostileText, WithLoneSurrogatesArrivesUnitByUnit) {
  const std::u16string path{u'a', 0xD83D, u'b', 0xDE00, u'c', 0xDE00, 0xD83D};
  EXPECT_EQ(Arrives(path), ClientLine(path));
}

TEST_F(HostileText, ThatIsInvalidIsLoggedUpToWhatTheLogCannotHold) {
  // UTF-8 for the log, each byte widened with its sign: the first that is no ASCII ends the line.
  EXPECT_EQ(machine_.Launch(u"ab\U0001F600"), 0);
  EXPECT_THAT(machine_.NewLog(), ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: ab"));
  EXPECT_EQ(machine_.Launch(u""), 0);
  EXPECT_THAT(machine_.NewLog(), ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: \n"));
}

TEST_F(HostileText, OfAFormatArrivesUnchanged) {
  EXPECT_EQ(Arrives(u"%s%n%p%99999999d"), ClientLine(u"%2525s%2525n%2525p%252599999999d"));
  EXPECT_EQ(machine_.Launch(u"%s%n%p%99999999d"), 0);
  EXPECT_THAT(machine_.NewLog(),
              ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: %s%n%p%99999999d\n"));
}

TEST_F(HostileText, WithQuotesAndBackslashesStaysOneArgument) {
  EXPECT_EQ(Arrives(u"a\" \"C:\\evil.exe\" \\\\\\\""),
            ClientLine(u"a%2522%2520%2522C%253A%255Cevil.exe%2522%2520%255C%255C%255C%2522"));
}

TEST_F(HostileText, OfTheGreatestLengthPassesARuleOfAnyCharacters) {
  machine_.SetAllowlist(u".*");
  const std::u16string path = LongestPath(u"");
  EXPECT_EQ(Arrives(path), ClientLine(path));
}

TEST_F(HostileText, OfTheGreatestLengthPassesARuleOfAlternatives) {
  machine_.SetAllowlist(u"(a|b)*c");
  const std::u16string path = LongestPath(u"c");
  EXPECT_EQ(Arrives(path), ClientLine(path));
}

TEST_F(HostileText, OfTheGreatestLengthIsRefusedByARuleThatSeeksFurther) {
  machine_.SetAllowlist(u".*x$");
  EXPECT_EQ(machine_.Launch(u"apppathrd/path=" + LongestPath(u"")), 0);
  EXPECT_TRUE(machine_.NoOtherClient());
}

class TracedText : public HostileText {
 protected:
  TracedText() : HostileText(true) {}
};

TEST_F(TracedText, OfTheGreatestLengthIsTracedWhole) {
  machine_.SetAllowlist(u"nothing");
  const std::u16string request = u"apppathrd/path=" + LongestPath(u"");
  EXPECT_EQ(machine_.Launch(request), 0);
  EXPECT_THAT(machine_.NewLog(),
              ElementsAre(kEnabled, "Do not redirect the app path: '" + support::Narrow(request) + "'.\n"));
}

class MalformedRule : public TracedText {};

TEST_F(MalformedRule, EndsTheLauncherAbnormallyAndNobodyElse) {
  for (const char16_t* rule : {u"(", u"[", u"a{2,1}", u"*", u"nothing;\\"}) {
    machine_.SetAllowlist(rule);
    EXPECT_EQ(machine_.Launch(u"apppathrd/path=x"), kAbnormalEnd) << support::Narrow(rule);
    EXPECT_THAT(machine_.NewLog(), ElementsAre(kEnabled)) << support::Narrow(rule);
  }
  EXPECT_TRUE(machine_.Settle());
  EXPECT_TRUE(machine_.NoOtherClient());
}

TEST_F(MalformedRule, EndsTheLauncherAlsoFromTheThreadOfALongSearch) {
  machine_.SetAllowlist(u"nothing*;(");
  EXPECT_EQ(machine_.Launch(u"apppathrd/path=" + LongestPath(u"")), kAbnormalEnd);
  EXPECT_TRUE(machine_.NoOtherClient());
}

TEST_F(MalformedRule, IsNotReachedBehindOneThatMatches) {
  machine_.SetAllowlist(u".;(");
  EXPECT_EQ(Arrives(u"x"), ClientLine(u"x"));
}

TEST_F(MalformedRule, IsNotReachedByATextThatNeedsNoRules) {
  machine_.SetAllowlist(u"(");
  EXPECT_EQ(machine_.Launch(u"http://x"), 0);
  EXPECT_THAT(machine_.NewLog(),
              ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: http://x\n"));
  machine_.SetOrigin(u"Agent");
  EXPECT_EQ(machine_.Launch(u"http://x"), 0);
}

}  // namespace
}  // namespace roads
