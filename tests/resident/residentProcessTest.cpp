// The resident helper as the process that it is: from its start to its end.
#include <filesystem>
#include <functional>

#include "platform/handles.h"
#include "platform/raii.h"
#include "platform/registry.h"
#include "platform/window.h"
#include "tests/resident/residentTest.h"
#include "tests/support/process.h"

namespace resident {
namespace {

using support::CreateKey;
using support::SetNumber;
using support::SetText;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;

constexpr const char16_t* kWindowClass = u"CorvaneLumenar_UrlProtocolLaunchHelperClass";
constexpr const char16_t* kMutexName = u"Corvane Lumenar URL Helper Mutex";
constexpr platform::DWORD kUntilNextRefresh = 1000;

bool MutexIsFree() {
  const platform::UniqueMutex mutex(platform::CreateMutexW(nullptr, false, kMutexName));
  return platform::GetLastError() == 0;
}

class ResidentProcess : public ResidentTest {
 protected:
  ResidentProcess() {
    CreateKey(Hive::User, kUserKey);
    CreateKey(Hive::User, u"Software\\Classes");
    SetText(Hive::Machine, kInstallKey, u"ClientInstallPath", u"C:\\client\\");
    SetText(Hive::Machine, kInstallKey, u"AgentInstallPath", u"C:\\agent\\");
    for (const std::u16string& folder : {ChromeFolder() + u"\\1", ChromeFolder() + u"\\2", EdgeFolder() + u"\\1"}) {
      MakeFolder(folder);
    }
    MakeFolder(FirefoxFolder());
  }

  // The program, in its message loop. Nothing tells when another process's window is there, so this looks for it.
  static support::Process Start() {
    support::Process process({.program = support::ProgramPath(), .arguments = {}, .environment = {}});
    const platform::UniqueEvent never(platform::CreateEventW(nullptr, true, false, nullptr));
    platform::HWND window = platform::FindWindowW(kWindowClass, nullptr);
    for (; !window; window = platform::FindWindowW(kWindowClass, nullptr)) {
      platform::WaitForSingleObject(never.get(), 5);
    }
    EXPECT_NE(
        platform::SendMessageTimeoutW(window, platform::WM_NULL, 0, 0, platform::SMTO_ABORTIFHUNG, kBound, nullptr), 0);
    return process;
  }

  // The same, once its watcher watches. Nothing tells when it begins to, and a change ahead of that is none for it; so
  // this changes something until a refresh follows.
  static support::Process StartWatched() {
    support::Process process = Start();
    const platform::UniqueEvent event(platform::CreateEventW(nullptr, false, false, nullptr));
    const platform::UniqueKey base = FirefoxBase();
    std::uint32_t change = 0;
    do {
      support::DeleteKey(Hive::User, kFirefoxKey);
      Arm(base, event);
      SetNumber(Hive::User, kUserKey, u"Change", ++change);
    } while (platform::WaitForSingleObject(event.get(), kUntilNextRefresh) != platform::WAIT_OBJECT_0);
    return process;
  }

  static platform::UniqueKey FirefoxBase() {
    platform::UniqueKey base;
    EXPECT_EQ(platform::RegCreateKeyExW(platform::HKEY_CURRENT_USER, u"Software\\Mozilla\\ManagedStorage", 0, nullptr,
                                        platform::REG_OPTION_NON_VOLATILE, platform::KEY_ALL_ACCESS, nullptr,
                                        base.put(), nullptr),
              0);
    return base;
  }

  static void Arm(const platform::UniqueKey& key, const platform::UniqueEvent& event) {
    EXPECT_EQ(platform::RegNotifyChangeKeyValue(key.get(), true,
                                                platform::REG_NOTIFY_CHANGE_NAME | platform::REG_NOTIFY_CHANGE_LAST_SET,
                                                event.get(), true),
              0);
  }

  static void End() {
    ASSERT_TRUE(platform::PostMessageW(platform::FindWindowW(kWindowClass, nullptr), platform::WM_DESTROY, 0, 0));
  }

  // Waits until a refresh has made that come true. A refresh ends with the key for Firefox: removed beforehand, its
  // coming is the event.
  static void AwaitRefresh(const std::function<bool()>& isThere) {
    const platform::UniqueEvent event(platform::CreateEventW(nullptr, false, false, nullptr));
    const platform::UniqueKey base = FirefoxBase();
    while (true) {
      support::DeleteKey(Hive::User, kFirefoxKey);
      Arm(base, event);
      if (isThere()) return;
      ASSERT_EQ(platform::WaitForSingleObject(event.get(), kBound), platform::WAIT_OBJECT_0);
    }
  }

  void AwaitContent(const std::u16string& file, const std::string& part) const {
    AwaitRefresh([&] { return Content(file).value_or("").find(part) != std::string::npos; });
  }

  static void DeleteOrigin() {
    platform::UniqueKey root;
    ASSERT_EQ(platform::RegOpenKeyExW(platform::HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, platform::KEY_WRITE, root.put()),
              0);
    ASSERT_EQ(platform::RegDeleteValueW(root.get(), u"Origin"), 0);
  }

  // Every file below the browsers' folders.
  std::vector<std::string> Files() const {
    std::vector<std::string> files;
    for (const char16_t* browser : {u"\\Google", u"\\Microsoft\\Edge", u"\\Mozilla"}) {
      for (const auto& entry :
           std::filesystem::recursive_directory_iterator(machine.HostPath(LocalFolder() + browser))) {
        if (entry.is_regular_file()) files.push_back(entry.path().string());
      }
    }
    return files;
  }

  // Every key of the user's that the program writes to or below.
  static std::vector<std::u16string> UserKeys() {
    std::vector<std::u16string> keys;
    const std::function<void(const std::u16string&)> add = [&](const std::u16string& key) {
      if (!KeyExists(Hive::User, key)) return;
      keys.push_back(key);
      for (const std::u16string& name : Subkeys(Hive::User, key)) add(key + u"\\" + name);
    };
    for (const char16_t* key : {u"Software\\Classes", u"Software\\Corvane", u"Software\\Mozilla\\ManagedStorage"}) {
      add(key);
    }
    return keys;
  }

  std::u16string chromeFile = ChromeFolder() + u"\\1\\data.json";
};

TEST_F(ResidentProcess, BringsEverythingUpToDateAtItsStart) {
  MakeMachine(u"Client");
  SetText(Hive::Machine, kRoot + u"\\" + Scheme(u"a"), u"rules", u"first");
  support::Process process = Start();
  for (const std::u16string& folder : {ChromeFolder() + u"\\1", ChromeFolder() + u"\\2", EdgeFolder() + u"\\1"}) {
    EXPECT_THAT(Content(folder + u"\\data.json"),
                Optional(AllOf(HasSubstr("\"agentRules\" : \"first\""), HasSubstr("\"enabledIpRule\""))));
  }
  EXPECT_THAT(Content(FirefoxFolder() + u"\\data.json"), Optional(HasSubstr("\"type\" : \"storage\"")));
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(FirefoxFolder() + u"\\data.json"));
  EXPECT_EQ(Stored(Hive::User, kClasses + Scheme(u"a") + kCommand),
            Unterminated(u"\"C:\\client\\lumenar-url-protocol-launch-helper.exe\" %1"));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + kLaunchScheme + kCommand));
  EXPECT_FALSE(MutexIsFree());
  End();
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_TRUE(MutexIsFree());
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + Scheme(u"a")));  // A client keeps its handlers.
}

TEST_F(ResidentProcess, WritesNothingButTheLaunchSchemeWhenRedirectionIsOffAtItsStart) {
  MakeMachine(u"Client", 0);
  SetText(Hive::Machine, kRoot + u"\\" + Scheme(u"a"), u"rules", u"first");
  Put(EdgeFolder() + u"\\1\\data.json", "of an earlier life");
  support::Process process = Start();
  EXPECT_EQ(Content(chromeFile), std::nullopt);
  EXPECT_EQ(Content(EdgeFolder() + u"\\1\\data.json"), "of an earlier life");
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + Scheme(u"a")));
  EXPECT_TRUE(KeyExists(Hive::User, kClasses + kLaunchScheme));
  // A later refresh tells the extensions to stand down.
  const platform::HWND window = platform::FindWindowW(kWindowClass, nullptr);
  platform::SendMessageTimeoutW(window, platform::WM_USER, 0, 0, platform::SMTO_ABORTIFHUNG, kBound, nullptr);
  EXPECT_THAT(Content(chromeFile), Optional(HasSubstr("\"enabled\" : 0")));
  End();
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ResidentProcess, AChangeOfARuleReachesTheFiles) {
  MakeMachine(u"Client");
  SetText(Hive::Machine, kRoot + u"\\http", u"rules", u"first");
  support::Process process = StartWatched();
  SetText(Hive::Machine, kRoot + u"\\http", u"rules", u"second");
  AwaitContent(chromeFile, "\"agentRules\" : \"second\"");
  AwaitContent(EdgeFolder() + u"\\1\\data.json", "\"agentRules\" : \"second\"");
  AwaitContent(FirefoxFolder() + u"\\data.json", "\"agentRules\" : \"second\"");
  SetNumber(Hive::User, kRoot, u"Enabled", 1);
  SetText(Hive::User, kRoot, u"Origin", u"Agent");  // Now the user's root is whole, and hides the machine's.
  AwaitContent(chromeFile, "\"origin\" : \"Agent\"");
  End();
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ResidentProcess, ABurstOfChangesLeavesTheLastStateInTheFiles) {
  MakeMachine(u"Client");
  support::Process process = StartWatched();
  for (int i = 1; i <= 1000; ++i) {
    SetText(Hive::Machine, kRoot + u"\\http", u"rules", support::Wide("rule" + std::to_string(i)));
  }
  AwaitContent(chromeFile, "\"agentRules\" : \"rule1000\"");
  End();
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ResidentProcess, OfAnAgentLeavesNothingOfTheUsersBehindWithoutTheOrigin) {
  MakeMachine(u"Agent");
  SetText(Hive::User, kClasses + Scheme(u"other") + kCommand, u"", u"another program");
  CreateKey(Hive::User, u"Software\\Mozilla\\ManagedStorage");
  const std::vector<std::u16string> keysBefore = UserKeys();
  SetText(Hive::Machine, kRoot + u"\\" + Scheme(u"a"), u"rules", u"x");
  support::Process process = StartWatched();
  EXPECT_EQ(Files().size(), 4u);
  EXPECT_THAT(UserKeys(), Contains(kClasses + Scheme(u"a")));
  DeleteOrigin();
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(UserKeys(), keysBefore);
  EXPECT_THAT(Files(), testing::IsEmpty());
  EXPECT_TRUE(MutexIsFree());
}

TEST_F(ResidentProcess, OfAClientKeepsItsHandlersWithoutTheOrigin) {
  MakeMachine(u"Client");
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  SetNumber(Hive::User, kRoot, u"Enabled", 1);
  SetText(Hive::User, kRoot + u"\\" + Scheme(u"a"), u"rules", u"x");
  support::Process process = StartWatched();
  DeleteOrigin();
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_THAT(UserKeys(), Contains(kClasses + Scheme(u"a") + kCommand));
  EXPECT_THAT(UserKeys(), Not(Contains(kClasses + kLaunchScheme)));
  EXPECT_THAT(UserKeys(), Not(Contains(kRoot)));
  EXPECT_THAT(UserKeys(), Not(Contains(kFirefoxKey)));
  EXPECT_THAT(Files(), testing::IsEmpty());
}

TEST_F(ResidentProcess, TakesThreeHundredSchemesWithHostileNamesAndALongRuleList) {
  MakeMachine(u"Client");
  for (char16_t i = 0; i < 300; ++i) {
    std::u16string name = u".\u00fc\xD800";
    name += static_cast<char16_t>(u'A' + i / 26 % 26);
    name += static_cast<char16_t>(u'A' + i % 26);
    name.resize(i % 2 == 0 ? 255 : 5, u'x');
    CreateKey(Hive::Machine, kRoot + u"\\" + name);
  }
  SetText(Hive::Machine, kRoot + u"\\z", u"rules", std::u16string(0xFFFFF / 2 - 1, u'r'));
  SetNumber(Hive::Machine, kRoot, u"Enabled", 0);  // Else the user's classes would be full of them.
  support::Process process = Start();
  const platform::HWND window = platform::FindWindowW(kWindowClass, nullptr);
  EXPECT_NE(platform::SendMessageTimeoutW(window, platform::WM_USER, 0, 0, platform::SMTO_ABORTIFHUNG, kBound, nullptr),
            0);
  EXPECT_THAT(Content(chromeFile), Optional(AllOf(HasSubstr("\\u00fc\\ufffd"), HasSubstr(std::string(500000, 'r')))));
  End();
  EXPECT_EQ(process.Wait(), 0);
}

}  // namespace
}  // namespace resident
