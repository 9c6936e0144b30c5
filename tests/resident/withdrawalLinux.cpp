// The withdrawal, told by the whole of the user's hive and of the machine's disk: what stands there once the helper has
// gone is what stood there before it came.
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/raii.h"
#include "platform/registry.h"
#include "tests/resident/residentTest.h"
#include "tests/support/process.h"

namespace resident {
namespace {

namespace files = std::filesystem;

constexpr int kBetweenLooks = 20;
constexpr int kTries = 6'000;

std::string Contents(const files::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void RemoveOrigin() {
  platform::UniqueKey root;
  ASSERT_EQ(platform::RegOpenKeyExW(platform::HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, platform::KEY_WRITE, root.put()),
            0);
  ASSERT_EQ(platform::RegDeleteValueW(root.get(), u"Origin"), 0);
}

class WholeWithdrawal : public ResidentTest {
 protected:
  struct State {
    std::string userHive;
    std::map<std::string, std::string> disk;  // Path to content; a folder has none.
  };

  WholeWithdrawal() {
    support::SetText(Hive::User, kUserKey, u"Theirs", u"kept");
    support::SetText(Hive::User, kClasses + Scheme(u"other") + kCommand, u"", u"another program");
    support::CreateKey(Hive::User, u"Software\\Mozilla\\ManagedStorage\\another@extension");
    for (const std::u16string& folder : {ChromeFolder(), EdgeFolder()}) {
      Put(folder + u"\\1.0_0\\manifest.json", "{}");
      Put(folder + u"\\1.1_0\\manifest.json", "{}");
    }
    Put(FirefoxFolder() + u"\\profiles.ini", "[General]");
  }

  // All but the daily log, which tells of what happened.
  [[nodiscard]] State Look() const {
    const files::path drive = machine.HostPath(u"C:");
    State state{.userHive = Contents(drive.parent_path() / "user.reg"), .disk = {}};
    for (const auto& entry : files::recursive_directory_iterator(drive)) {
      if (entry.path().extension() == ".log") continue;
      state.disk[entry.path().string()] = entry.is_regular_file() ? Contents(entry.path()) : "";
    }
    return state;
  }

  // The settings of both hives, and a helper until it has withdrawn. A change ahead of its watch is none for it: so one
  // follows the other.
  void LiveAndWithdraw(std::u16string_view origin) {
    MakeMachine(origin);
    support::SetText(Hive::User, kRoot, u"Origin", origin);
    support::SetNumber(Hive::User, kRoot, u"Enabled", 1);
    support::SetText(Hive::User, kRoot + u"\\" + Scheme(u"a"), u"rules", u"x");
    support::SetText(Hive::User, kRoot + u"\\" + Scheme(u"other"), u"rules", u"x");
    support::Process process({.program = support::ProgramPath(), .arguments = {}, .environment = {}});
    const platform::Descriptor end(static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(process.Id()), 0)));
    pollfd ended{.fd = end.get(), .events = POLLIN, .revents = 0};
    AwaitRegistration(ended);
    seenWhileItLived_ = Look();
    RemoveOrigin();
    for (std::uint32_t tries = 0; tries < kTries && poll(&ended, 1, kBetweenLooks) == 0; ++tries) {
      support::SetNumber(Hive::Machine, kRoot, u"Change", tries);
    }
    EXPECT_EQ(process.Wait(), 0);
  }

  State seenWhileItLived_;

 private:
  // The launch scheme is the last that a start registers.
  static void AwaitRegistration(pollfd ended) {
    for (int tries = 0; tries < kTries && poll(&ended, 1, kBetweenLooks) == 0; ++tries) {
      if (Stored(Hive::User, kClasses + kLaunchScheme, u"URL Protocol")) return;
    }
    FAIL() << "the helper has not come up";
  }
};

TEST_F(WholeWithdrawal, OfAnAgentLeavesHiveAndDiskAsTheyWere) {
  const State before = Look();
  LiveAndWithdraw(u"Agent");
  EXPECT_EQ(seenWhileItLived_.disk.size(), before.disk.size() + 5);
  EXPECT_NE(seenWhileItLived_.userHive, before.userHive);
  const State after = Look();
  EXPECT_EQ(after.userHive, before.userHive);
  EXPECT_EQ(after.disk, before.disk);
}

TEST_F(WholeWithdrawal, OfAClientLeavesNothingButItsHandlers) {
  const State before = Look();
  LiveAndWithdraw(u"Client");
  const std::u16string handler = kClasses + Scheme(u"a");
  EXPECT_EQ(Stored(Hive::User, handler), Unterminated(u"URL:lumenar-test-a Protocol"));
  support::DeleteKey(Hive::User, handler);
  const State after = Look();
  EXPECT_EQ(after.userHive, before.userHive);
  EXPECT_EQ(after.disk, before.disk);
}

}  // namespace
}  // namespace resident
