// Which role a start of the program plays, and what the launcher's roles come to that route no URL.
#include <gmock/gmock.h>

#include "tests/roads/localOpen.h"
#include "tests/roads/roadMachine.h"
#include "tests/roads/watchedProcess.h"

namespace roads {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A scheme whose registered handler is the recording client.
constexpr const char16_t* kSchemeKey = u"Software\\Classes\\lumenar-test";

class LocalOpen : public testing::Test {
 protected:
  LocalOpen() {
    for (const support::Hive hive : kHandlerHives) {
      support::SetText(hive, kSchemeKey, u"", u"URL:test");
      support::SetText(hive, kSchemeKey, u"URL Protocol", u"");
      support::SetText(hive, std::u16string(kSchemeKey) + u"\\shell\\open\\command", u"",
                       machine_.Client() + u" \"%1\"");
    }
  }
  ~LocalOpen() override {
    for (const support::Hive hive : kHandlerHives) support::DeleteKey(hive, kSchemeKey);
  }

  // The command line of the handler for that URL.
  [[nodiscard]] std::string Handler(const std::string& url) const {
    return support::Narrow(machine_.Client()) + " \"" + url + "\"";
  }

  RoadMachine machine_;
};

// The message that nothing is associated with the first argument.
void ExpectMessage(RoadMachine& machine, const std::vector<std::u16string>& arguments) {
  support::Process process = machine.Start(arguments);
  const MessageBox box = AwaitMessageBox(process);
  EXPECT_EQ(box.caption, support::Narrow(arguments.front()));
  EXPECT_THAT(box.text, Not(IsEmpty()));
  EXPECT_EQ(Await(process), 0);
  EXPECT_THAT(machine.NewLog(), IsEmpty());
}

TEST(LaunchPrefix, IsFoundInsideALongerFirstArgument) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  EXPECT_EQ(machine.Run({u"xtavrix-prism-url-launch://abc"}), 0);
  EXPECT_THAT(machine.NewLog(), ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: abc\n"));
}

TEST(LaunchPrefix, EndsAtItsFirstOccurrence) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  EXPECT_EQ(machine.Launch(u"tavrix-prism-url-launch://abc"), 0);
  EXPECT_THAT(
      machine.NewLog(),
      ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: tavrix-prism-url-launch://abc\n"));
}

TEST(LaunchPrefix, GoesBeforeTheLocalSwitchInTheSameArgument) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  EXPECT_EQ(machine.Run({u"--url=tavrix-prism-url-launch://abc", u"lumenar-test:x"}), 0);
  EXPECT_THAT(machine.NewLog(), ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: abc\n"));
}

TEST(LaunchPrefix, CountsInTheFirstArgumentAlone) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  ExpectMessage(machine, {u"abc", u"tavrix-prism-url-launch://abc"});
}

TEST(LaunchPrefix, InUpperCaseIsNone) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  ExpectMessage(machine, {u"TAVRIX-PRISM-URL-LAUNCH://x"});
}

TEST(RefreshMarker, WithoutAResidentDoesNothing) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  EXPECT_EQ(machine.Launch(u"#createConfigData"), 0);
  EXPECT_THAT(machine.NewLog(), IsEmpty());
}

TEST(RefreshMarker, AnywhereInTheTextKeepsItFromBeingRouted) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.StartResident();
  static_cast<void>(machine.NewLog());
  EXPECT_EQ(machine.Launch(u"#createConfigData"), 0);
  EXPECT_EQ(machine.Launch(u"apppathrd/path=a#createConfigDatab"), 0);
  EXPECT_THAT(machine.NewLog(), Each(Not(AnyOf(HasSubstr("app path"), HasSubstr("CheckAppPathSettings")))));
  EXPECT_TRUE(machine.NoOtherClient());
  EXPECT_EQ(machine.EndResident(), 0);
}

TEST(RefreshMarker, InAnotherCaseIsNone) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  EXPECT_EQ(machine.Launch(u"#CreateConfigData"), 0);
  EXPECT_THAT(machine.NewLog(),
              ElementsAre("SendMessageToRedirectAppPathToAgent: The app path is invalid: #CreateConfigData\n"));
}

TEST_F(LocalOpen, StartsTheRegisteredHandlerWithTheUrl) {
  EXPECT_EQ(machine_.Run({u"--url", u"lumenar-test://host/a?b=%s"}), 0);
  EXPECT_EQ(support::Narrow(machine_.Clients().Next()), Handler("lumenar-test://host/a?b=%s"));
  EXPECT_THAT(machine_.NewLog(), IsEmpty());
}

TEST_F(LocalOpen, FindsItsSwitchInsideTheArgument) {
  EXPECT_EQ(machine_.Run({u"x--urlx", u"lumenar-test://host", u"lumenar-test://other"}), 0);
  EXPECT_EQ(support::Narrow(machine_.Clients().Next()), Handler("lumenar-test://host"));
}

TEST_F(LocalOpen, OfAProgramWhosePathHoldsTheSwitchOpensTheFirstArgument) {
  const fs::path program = machine_.HostPath(machine_.Folder()) / "--url" / "helper.exe";
  fs::create_directories(program.parent_path());
  fs::copy_file(ProgramPath(), program);
  support::Process process(OptionsFor(program, {u"lumenar-test://host", u"lumenar-test://other"}));
  EXPECT_EQ(Await(process), 0);
  EXPECT_EQ(support::Narrow(machine_.Clients().Next()), Handler("lumenar-test://host"));
}

TEST_F(LocalOpen, WithoutAUrlShowsTheSwitchAsTheCaption) { ExpectMessage(machine_, {u"--url"}); }

TEST_F(LocalOpen, OfAUrlWithoutTheSwitchDoesNotHappen) { ExpectMessage(machine_, {u"lumenar-test://host"}); }

TEST_F(LocalOpen, InUpperCaseDoesNotHappen) { ExpectMessage(machine_, {u"--URL", u"lumenar-test://host"}); }

TEST_F(LocalOpen, ThatFailsLeavesOneTextWithoutALineEnd) {
  const auto report = [](const std::string& url) {
    std::vector<std::string> texts;
    for (const std::uint32_t error : kNoHandlerErrors) {
      texts.push_back("ShellExecute failed: url '" + url + "' with err = " + std::to_string(error) + ".");
    }
    return testing::AnyOfArray(texts);
  };
  EXPECT_EQ(machine_.Run({u"--url", u"lumenar-nosuch://%s%n"}), 0);
  EXPECT_EQ(machine_.Run({u"--url", u"lumenar-nosuch://2"}), 0);
  EXPECT_THAT(machine_.NewLog(), ElementsAre(report("lumenar-nosuch://%s%n"), report("lumenar-nosuch://2")));
}

TEST_F(LocalOpen, ThatFailsIsReportedIn255UnitsAtMost) {
  const std::u16string url = u"lumenar-nosuch://" + std::u16string(230, u'x');
  EXPECT_EQ(machine_.Run({u"--url", url}), 0);
  EXPECT_THAT(machine_.NewLog(), ElementsAre(("ShellExecute failed: url '" + support::Narrow(url)).substr(0, 255)));
}

}  // namespace
}  // namespace roads
