// The settings watcher as a thread, with a window of this test in the place of the helper's.
#include "launcher/settingsWatcher.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "launcher/residentState.h"
#include "platform/raii.h"
#include "platform/window.h"
#include "tests/resident/residentTest.h"
#include "tests/unit/helperClass.h"

namespace resident {
namespace {

using support::SetNumber;
using support::SetText;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr platform::UINT kDrained = platform::WM_USER + 1;
constexpr platform::DWORD kUntilNextTry = 20;

class SettingsWatcher : public ResidentTest {
 protected:
  SettingsWatcher() : window_(&Record) {
    seen.clear();
    launcher::ShutdownEvent = shutdown_.get();
  }
  ~SettingsWatcher() override {
    if (thread_) Shutdown();
    launcher::ShutdownEvent = {};
  }

  static void MakeSettings() {
    MakeMachine(u"Agent");
    support::CreateKey(Hive::User, kUserKey);
  }

  static void DeleteOrigin() {
    platform::UniqueKey root;
    ASSERT_EQ(platform::RegOpenKeyExW(platform::HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, platform::KEY_WRITE, root.put()),
              0);
    ASSERT_EQ(platform::RegDeleteValueW(root.get(), u"Origin"), 0);
  }

  void Start() {
    thread_.reset(platform::CreateThread(nullptr, 0, &launcher::SettingsWatcherThread,
                                         reinterpret_cast<void*>(window_.get().value()), 0, nullptr));
    ASSERT_TRUE(thread_);
  }

  // Starts the watcher, and makes it give one order by changes on that side. Nothing tells when it has begun to watch,
  // and a change ahead of that is none for it: so one change follows the other until there is an order.
  void StartAndChange(Hive side) {
    Start();
    std::atomic<bool> ordered = false;
    std::thread changes([&] {
      const platform::UniqueEvent never(platform::CreateEventW(nullptr, true, false, nullptr));
      while (!ordered) {
        SetNumber(side, side == Hive::User ? kUserKey : kRoot, u"Change", ++changes_);
        platform::WaitForSingleObject(never.get(), kUntilNextTry);
      }
    });
    Await(platform::WM_USER);
    ordered = true;
    changes.join();
  }

  // Serves the window until it has been given that order.
  static void Await(platform::UINT order) {
    platform::MSG message{};
    while (std::ranges::find(seen, order) == seen.end() && platform::GetMessageW(&message, nullptr, 0, 0) > 0) {
      platform::DispatchMessageW(&message);
    }
  }

  // Waits for the watcher's end, and takes the orders that it has left behind.
  void Join() {
    ASSERT_EQ(platform::WaitForSingleObject(thread_.get(), platform::INFINITE), platform::WAIT_OBJECT_0);
    thread_.reset();
    platform::PostMessageW(window_.get(), kDrained, 0, 0);
    Await(kDrained);
    std::erase(seen, kDrained);
  }

  void Shutdown() {
    platform::SetEvent(shutdown_.get());
    Join();
  }

  static std::vector<platform::UINT> seen;
  std::uint32_t changes_ = 0;

 private:
  static platform::LRESULT Record(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                  platform::LPARAM lParam) {
    if (message != platform::WM_USER && message != platform::WM_DESTROY && message != kDrained) {
      return platform::DefWindowProcW(window, message, wParam, lParam);
    }
    seen.push_back(message);
    return 0;
  }

  unit::HelperClassWindow window_;
  platform::UniqueEvent shutdown_{platform::CreateEventW(nullptr, false, false, nullptr)};
  platform::UniqueThread thread_;
};

std::vector<platform::UINT> SettingsWatcher::seen;

TEST_F(SettingsWatcher, EndsByTheShutdownEvent) {
  MakeSettings();
  Start();
  Shutdown();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("The helper thread exists."));
}

TEST_F(SettingsWatcher, WithoutTheUsersKeyEndsAndSaysSo) {
  MakeMachine(u"Agent");
  Start();
  Join();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to open root key under HKCU, err=0x00000002\n"));
}

TEST_F(SettingsWatcher, WithoutTheMachinesKeyEndsAndSaysSo) {
  support::CreateKey(Hive::User, kUserKey);
  Start();
  Join();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to open root key under HKLM, err=0x00000002\n"));
}

TEST_F(SettingsWatcher, AChangeOfTheMachinesSettingsOrdersARefresh) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  Shutdown();
  EXPECT_LE(seen.size(), changes_);  // Never more refreshes than changes.
  EXPECT_THAT(seen, testing::Each(platform::WM_USER));
  EXPECT_TRUE(KeyExists(Hive::User, kUserKey));
}

// Whether the origin is there is asked on the machine's side alone.
TEST_F(SettingsWatcher, AChangeOfTheUsersSettingsOrdersARefreshAlsoWithoutAnOrigin) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  StartAndChange(Hive::User);
  Shutdown();
  EXPECT_LE(seen.size(), changes_);
  EXPECT_THAT(seen, testing::Each(platform::WM_USER));
  EXPECT_TRUE(KeyExists(Hive::User, kRoot));
}

TEST_F(SettingsWatcher, AChangeFarBelowIsNoticed) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  seen.clear();
  SetText(Hive::User, kRoot + u"\\http\\deeper", u"rules", u"x");
  Await(platform::WM_USER);
  seen.clear();
  SetText(Hive::Machine, kRoot + u"\\http\\deeper", u"rules", u"x");
  Await(platform::WM_USER);
}

TEST_F(SettingsWatcher, WithoutTheOriginWithdrawsEverythingOfTheUsersAndEnds) {
  MakeSettings();
  SetText(Hive::User, kRoot + u"\\http", u"rules", u"x");
  SetText(Hive::User, kUserKey, u"Other", u"kept");
  SetText(Hive::User, kClasses + kLaunchScheme + kCommand, u"", u"x");
  SetText(Hive::User, kFirefoxKey, u"", u"x");
  Put(ChromeFolder() + u"\\1\\data.json", "x");
  Put(FirefoxFolder() + u"\\data.json", "x");
  StartAndChange(Hive::Machine);
  DeleteOrigin();
  Await(platform::WM_DESTROY);
  EXPECT_FALSE(KeyExists(Hive::User, kRoot));  // All has gone by the time of the order.
  EXPECT_EQ(Stored(Hive::User, kUserKey, u"Other"), Terminated(u"kept"));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + kLaunchScheme));
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_EQ(Content(ChromeFolder() + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(FirefoxFolder() + u"\\data.json"), std::nullopt);
  EXPECT_TRUE(KeyExists(Hive::Machine, kRoot));
  Join();  // By itself, without the event.
  EXPECT_EQ(seen.back(), platform::WM_DESTROY);
  EXPECT_EQ(std::ranges::count(seen, platform::WM_DESTROY), 1);
}

// A key that is deleted before the watcher has come back to watching it cannot be watched any more: that ends the
// watcher without a withdrawal, as it should, and here there is another try.
TEST_F(SettingsWatcher, WithoutTheMachinesKeyWithdrawsAndLogsWhatIsNotThere) {
  do {
    seen.clear();
    log.RemoveFolder();
    std::filesystem::create_directories(log.Folder());
    MakeSettings();
    StartAndChange(Hive::Machine);
    support::DeleteKey(Hive::Machine, kRoot);
    Join();
  } while (log.Content().find("RegNotifyChangeKeyValue failed") != std::string::npos);
  EXPECT_EQ(seen.back(), platform::WM_DESTROY);
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to delete url redirection settings, err=0x00000002\n",
                                       "Failed to delete key for Firefox Url extension path.\n",
                                       "Failed to delete key for custom protocol url launch\n"));
}

TEST_F(SettingsWatcher, GoesOnWithTheMachinesSideWhenTheUsersKeyIsDeleted) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  seen.clear();
  support::DeleteKey(Hive::User, u"Software\\Corvane");
  Await(platform::WM_USER);
  DeleteOrigin();
  Await(platform::WM_DESTROY);
  Join();
  EXPECT_THAT(log.Texts(), Contains(AllOf(StartsWith("RegNotifyChangeKeyValue failed for "), EndsWith("\n"))));
}

TEST_F(SettingsWatcher, ABurstOfChangesEndsWithARefreshThatSeesTheLast) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  std::thread burst([] {
    for (std::uint32_t i = 1; i <= 1000; ++i) SetNumber(Hive::Machine, kRoot, u"Burst", i);
  });
  Value last{};
  const Value expected{platform::REG_DWORD, {0xE8, 3, 0, 0}};
  while (last != expected) {
    seen.clear();
    Await(platform::WM_USER);
    last = Stored(Hive::Machine, kRoot, u"Burst").value_or(Value{});
  }
  burst.join();
}

}  // namespace
}  // namespace resident
