// A URL on its way from a launcher's command line to the service.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

struct Way {
  const char* what;
  std::u16string text;  // Behind the launch prefix.
  std::u16string arrives;
};

std::u16string Units(std::size_t count) { return std::u16string(count, u'a'); }

Way Unchanged(const char* what, const std::u16string& text) { return {what, text, text}; }

// Only a colon is decoded, the first that is encoded, and only where the name of a scheme may end.
std::vector<Way> WaysOfAColon() {
  return {
      {"encoded", u"https%3A//example.com/a?b=c", u"https://example.com/a?b=c"},
      {"encoded in lower case", u"http%3a%2F%2Fexample.com", u"http:%2F%2Fexample.com"},
      {"behind nine units", u"abcdefghi%3Ax", u"abcdefghi:x"},
      Unchanged("behind ten units", u"abcdefghij%3Ax"),
      Unchanged("hidden by a later one", u"http%3a//example.com/%3A"),
      {"at the end, before one in lower case", u"abc%3a%3A", u"abc%3a:"},
      {"of a text of 2,084 units", u"https%3A//" + Units(2074), u"https://" + Units(2074)},
      Unchanged("of a text of 2,085 units", u"https%3A//" + Units(2075)),
  };
}

std::vector<Way> WaysOfText() {
  return {
      Unchanged("empty", u""),
      Unchanged("one unit", u"x"),
      Unchanged("non-ASCII", u"https://b\u00FCcher.example/\u4E2D\u6587/\u05E9\uFEFF\uFFFE\uFFFF"),
      Unchanged("surrogate pairs", u"https://example.com/\U0001F600\U00010000\U0010FFFF"),
      Unchanged("lone surrogates", {u'a', 0xD83D, u'b', 0xDE00, u'c', 0xDE00, 0xD83D}),
      Unchanged("a lone surrogate alone", {0xDBFF}),
      Unchanged("2,084 units", Units(2084)),
      Unchanged("2,085 units", Units(2085)),
      Unchanged("32,000 units", Units(31998) + u"\u00FC\u4E2D"),
      Unchanged("like a format", u"%s%n%p%S%99999999d%1$*2$hhn%"),
      Unchanged("quotes, backslashes and blanks", u"a\" \"C:\\b.exe\" \\\\\\\" \t\r\n\v '$(x) `y` %PATH% \\"),
      Unchanged("like a switch", u"--url"),
      Unchanged("like an app path in other letters", u"APPPATHRD/path=x"),
      Unchanged("an app path that passes the rules", u"apppathrd/path=C:\\a b"),
  };
}

std::string Payload(const std::u16string& url) {
  const auto length = static_cast<std::uint32_t>(2 * (url.size() + 1));
  return standIn::Bytes32(2) + standIn::Bytes32(length) + standIn::ToLittleEndian(url + u'\0') + "\0\0\0\0"s;
}

// All that the service sees of one launcher.
void ExpectOneCommand(CommandService& service, const std::u16string& url) {
  const std::string payload = Payload(url);
  EXPECT_THAT(service.UntilEnded(1),
              ElementsAre(AllOf(StartsWith("connect stream "), EndsWith(" procedure 0 authenticated")),
                          StartsWith("asks version 1 "), StartsWith("connected link "),
                          AllOf(StartsWith("message stream "), EndsWith(" bytes " + std::to_string(payload.size()) +
                                                                        " " + standIn::HexBytes(payload))),
                          CommandLine(url), StartsWith("close stream "), StartsWith("closed link ")));
}

class AgentRoad : public testing::Test {
 protected:
  AgentRoad() { machine.SetUp(u"Agent"); }
  ~AgentRoad() override {
    EXPECT_THAT(service.End(), testing::IsEmpty());
    EXPECT_EQ(service.Wait(), 0);
  }

  // The service is heard while the launcher runs: it writes more than its pipe holds.
  void ExpectArrives(const std::u16string& argument, const std::u16string& url) {
    support::Process launcher = machine.Start({argument});
    ExpectOneCommand(service, url);
    EXPECT_EQ(Await(launcher), 0);
  }
  void ExpectArrive(const std::vector<Way>& ways) {
    for (const Way& way : ways) {
      SCOPED_TRACE(way.what);
      ExpectArrives(kLaunchPrefix + way.text, way.arrives);
    }
  }

  RoadMachine machine;
  CommandService service{{"--bytes"}};
};

TEST_F(AgentRoad, TakesAnyTextUnitForUnitInOneMessage) { ExpectArrive(WaysOfText()); }

TEST_F(AgentRoad, DecodesTheColonBehindASchemeAndNothingElse) { ExpectArrive(WaysOfAColon()); }

TEST_F(AgentRoad, BeginsBehindTheFirstLaunchPrefix) {
  const std::u16string prefix = kLaunchPrefix;
  ExpectArrives(u"x" + prefix + u"abc", u"abc");
  ExpectArrives(u"--url" + prefix + u"abc", u"abc");
  ExpectArrives(prefix + prefix + u"https%3A//example.com", prefix + u"https%3A//example.com");
  ExpectArrives(prefix + u"a%3A" + prefix, u"a:" + prefix);
}

TEST_F(AgentRoad, IsNotTakenByWhatTheRulesRefuse) {
  machine.SetAllowlist(u"nothing");
  EXPECT_EQ(machine.Launch(u"apppathrd/path=x"), 0);
  EXPECT_EQ(machine.Launch(u"apppathrd%3Apath=x"), 0) << "decoded, this is an address like any other";
  ExpectOneCommand(service, u"apppathrd:path=x");
}

TEST_F(AgentRoad, IsNotTakenByARequestToRefresh) {
  EXPECT_EQ(machine.Launch(u"https://example.com/#createConfigData"), 0);
  ExpectArrives(kLaunchPrefix + u"https://example.com/#createconfigdata"s, u"https://example.com/#createconfigdata");
}

TEST_F(AgentRoad, IsNotTakenOnAMachineOfAnotherOrigin) {
  for (const char16_t* origin : {u"Client", u"Other"}) {
    machine.SetOrigin(origin);
    EXPECT_EQ(machine.Launch(u"https://example.com/"), 0);
  }
  machine.SetOrigin(u"Agent");
  ExpectArrives(kLaunchPrefix + u"back"s, u"back");
}

}  // namespace
}  // namespace roads
