// Where the registered commands lead.
#include "settings/launchHelperPath.h"

#include "platform/registry.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using support::SetText;
using LaunchHelperPath = ResidentTest;

constexpr const char16_t* kName = u"lumenar-url-protocol-launch-helper.exe";
constexpr const char16_t* kFallback = u"C:\\Program Files\\Corvane\\Corvane Lumenar Client\\";

struct Answer {
  bool found;
  std::u16string path;
  friend bool operator==(const Answer&, const Answer&) = default;
};

Answer Ask() {
  Answer answer{};
  answer.found = settings::GetLaunchHelperPath(answer.path);
  return answer;
}

TEST_F(LaunchHelperPath, WithoutAnInstallPathIsTheFallbacks) {
  MakeMachine(u"Client");
  EXPECT_EQ(Ask(), (Answer{false, std::u16string(kFallback) + kName}));
}

TEST_F(LaunchHelperPath, OfAnAgentWithoutAnInstallPathIsBelowTheFallbacks) {
  MakeMachine(u"Agent");
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\client\\");
  EXPECT_EQ(Ask(), (Answer{false, std::u16string(kFallback) + u"bin\\UrlRedirection\\" + kName}));
}

TEST_F(LaunchHelperPath, OfAClientIsTheClientsAsStored) {
  MakeMachine(u"Client");
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\no separator");
  SetText(Hive::Machine, kInstallKey, u"AgentInstallPath", u"C:\\agent\\");
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"C:\\no separator") + kName}));
}

TEST_F(LaunchHelperPath, OfAnAgentIsBelowTheAgentsAlsoWhenRedirectionIsOff) {
  MakeMachine(u"Agent", 0);
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\client\\");
  SetText(Hive::Machine, kInstallKey, u"AgentInstallPath", u"C:\\agent\\");
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"C:\\agent\\bin\\UrlRedirection\\") + kName}));
}

TEST_F(LaunchHelperPath, OfThe32BitViewComesSecond) {
  MakeMachine(u"Client");
  SetText(Hive::Machine, kInstallKey32, u"ClientInstallPath", u"C:\\32\\");
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"C:\\32\\") + kName}));
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\64\\");
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"C:\\64\\") + kName}));
}

// The room is told in bytes: 129 units and their NUL fit.
TEST_F(LaunchHelperPath, AnInstallPathOfMoreThan260BytesCountsAsNone) {
  MakeMachine(u"Client");
  std::u16string longest = u"C:\\";
  longest.resize(128, u'x');
  longest += u'\\';
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", longest);
  EXPECT_EQ(Ask(), (Answer{true, longest + kName}));
  SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", longest + u"y");
  SetText(Hive::Machine, kInstallKey32, u"ClientInstallPath", u"D:\\");
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"D:\\") + kName}));
}

TEST_F(LaunchHelperPath, AnyTypeOfValueIsTaken) {
  MakeMachine(u"Client");
  support::SetBytes(Hive::Machine, kInstallKey, u"ClientInstallPath", platform::REG_BINARY, {'E', 0, ':', 0, '\\', 0});
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"E:\\") + kName}));
}

TEST_F(LaunchHelperPath, ATextWithoutItsNulIsTaken) {
  MakeMachine(u"Client");
  SetUnterminated(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\x\\");
  EXPECT_EQ(Ask(), (Answer{true, std::u16string(u"C:\\x\\") + kName}));
}

}  // namespace
}  // namespace resident
