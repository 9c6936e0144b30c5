// Data files when the system fails in the middle, or does not let them be written.
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "browser/dataFile.h"
#include "browser/extensionData.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using testing::ElementsAre;
using DataFileFaults = ResidentTest;

constexpr std::size_t kRoom = 16'384;

// While one lives, no file of this process grows beyond that room: a write takes what fits, and the next one nothing,
// as on a disk that is full.
class LittleRoom {
 public:
  LittleRoom() : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit little{.rlim_cur = kRoom, .rlim_max = before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
  }
  LittleRoom(const LittleRoom&) = delete;
  LittleRoom& operator=(const LittleRoom&) = delete;
  ~LittleRoom() {
    setrlimit(RLIMIT_FSIZE, &before_);
    static_cast<void>(std::signal(SIGXFSZ, handler_));
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

// While one lives, this thread is held to the rights of a file also when it belongs to a superuser.
class HeldToRights {
 public:
  HeldToRights() {
    EXPECT_EQ(syscall(SYS_capget, &header_, before_), 0);
    __user_cap_data_struct held[] = {before_[0], before_[1]};
    held[0].effective &= ~(1U << CAP_DAC_OVERRIDE);
    EXPECT_EQ(syscall(SYS_capset, &header_, held), 0);
  }
  HeldToRights(const HeldToRights&) = delete;
  HeldToRights& operator=(const HeldToRights&) = delete;
  ~HeldToRights() { EXPECT_EQ(syscall(SYS_capset, &header_, before_), 0); }

 private:
  __user_cap_header_struct header_{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  __user_cap_data_struct before_[2]{};
};

TEST_F(DataFileFaults, AWriteThatFailsLeavesTheFileEmptyAndIsLogged) {
  const std::u16string file = machine.Folder() + u"data.json";
  Put(file, "old");
  platform::test::ArmFaults(2, false, 112);
  EXPECT_FALSE(browser::WriteDataFile("new", file));
  platform::test::DisarmFaults();
  EXPECT_EQ(Content(file), "");
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to write to C:\\test\\data.json, error=0x00000070\n"));
  EXPECT_TRUE(browser::WriteDataFile("new", file));
  EXPECT_EQ(Content(file), "new");
}

TEST_F(DataFileFaults, AVersionThatIsReadOnlyIsLoggedAndTheOthersAreWritten) {
  const std::u16string folder = machine.Folder() + u"ext";
  MakeFolder(folder + u"\\1");
  MakeFolder(folder + u"\\2");
  const std::filesystem::path readOnly = machine.HostPath(folder + u"\\1");
  std::filesystem::permissions(readOnly, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  {
    const HeldToRights held;
    EXPECT_TRUE(browser::WriteChromiumDataFiles(folder, "doc"));
  }
  std::filesystem::permissions(readOnly, std::filesystem::perms::owner_all);
  EXPECT_EQ(Content(folder + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(folder + u"\\2\\data.json"), "doc");
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create C:\\test\\ext\\1\\data.json, error=0x00000005\n"));
}

// The document of an agent that redirects one scheme, by as long a rule.
class FullDisk : public ResidentTest {
 protected:
  FullDisk() {
    MakeMachine(u"Agent");
    support::SetText(Hive::Machine, kRoot + u"\\http", u"rules", std::u16string(kRuleUnits, u'r'));
    MakeFolder(folder);
  }

  void WriteWithoutRoom() const {
    EXPECT_FALSE(browser::WriteExtensionData(browser::BrowserType::Chrome));
    EXPECT_THAT(log.Texts(), ElementsAre("Failed to write to " + support::Narrow(file) + ", error=0x00000070\n"));
    EXPECT_EQ(Content(file), document.substr(0, kRoom));
  }

  void WriteWithRoom() const {
    EXPECT_TRUE(browser::WriteExtensionData(browser::BrowserType::Chrome));
    EXPECT_EQ(Content(file), document);
  }

  static constexpr std::size_t kRuleUnits = 100'000;
  const std::u16string folder = ChromeFolder() + u"\\1";
  const std::u16string file = folder + u"\\data.json";
  const std::string document =
      "{\n"
      "\t\"enabled\" : 1,\n"
      "\t\"enabledIpRule\" : 0,\n"
      "\t\"host\" : \"Windows\",\n"
      "\t\"origin\" : \"Agent\",\n"
      "\t\"protocols\" : \n"
      "\t[\n"
      "\t\t{\n"
      "\t\t\t\"agentRules\" : \"\",\n"
      "\t\t\t\"brokerHostname\" : \"\",\n"
      "\t\t\t\"clientRules\" : \"" +
      std::string(kRuleUnits, 'r') +
      "\",\n"
      "\t\t\t\"protocol\" : \"http\",\n"
      "\t\t\t\"remoteItem\" : \"\"\n"
      "\t\t}\n"
      "\t],\n"
      "\t\"version\" : \"8.18.0\"\n"
      "}\n";
};

TEST_F(FullDisk, CutsTheFileShortAndTheNextRefreshHealsIt) {
  {
    const LittleRoom room;
    WriteWithoutRoom();
  }
  WriteWithRoom();
}

// The same on a real disk of that size. Only a superuser may bring one.
TEST_F(FullDisk, OfSixteenKibibytesCutsTheFileShortAndHealsOnceThereIsRoom) {
  const std::string place = machine.HostPath(folder).string();
  bool mounted = false;
  std::thread([&] {  // Its mounts are its own, and end with it.
    mounted = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
              mount("none", place.c_str(), "tmpfs", 0, "size=16k") == 0;
    if (!mounted) return;
    WriteWithoutRoom();
    ASSERT_EQ(mount("none", place.c_str(), "tmpfs", MS_REMOUNT, "size=1m"), 0);
    WriteWithRoom();
  })
      .join();
  if (!mounted) GTEST_SKIP() << "this user may not mount a disk";
}

}  // namespace
}  // namespace resident
