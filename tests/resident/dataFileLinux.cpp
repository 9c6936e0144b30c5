// Data files when the system fails in the middle.
#include <sys/mount.h>

#include "browser/dataFile.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using testing::ElementsAre;
using DataFileFaults = ResidentTest;

// A disk of 16 KiB in the place of a folder.
class SmallDisk {
 public:
  explicit SmallDisk(const std::filesystem::path& folder, unsigned long flags = 0)
      : folder_(folder), mounted_(mount("tmpfs", folder.c_str(), "tmpfs", flags, "size=16k") == 0) {}
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (mounted_) umount2(folder_.c_str(), MNT_DETACH);
  }
  explicit operator bool() const { return mounted_; }

 private:
  std::filesystem::path folder_;
  bool mounted_;
};

TEST_F(DataFileFaults, AVersionThatVanishesBeforeItsTurnIsLogged) {
  const std::u16string folder = machine.Folder() + u"ext";
  MakeFolder(folder + u"\\1");
  std::vector<std::u16string> versions;
  browser::ListExtensionVersionDirs(versions, folder);
  ASSERT_THAT(versions, ElementsAre(u"1"));
  std::filesystem::remove_all(machine.HostPath(folder + u"\\1"));
  EXPECT_FALSE(browser::WriteDataFile("doc", browser::DataFileIn(folder + u"\\1")));
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create C:\\test\\ext\\1\\data.json, error=0x00000003\n"));
}

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
  const SmallDisk disk(machine.HostPath(folder + u"\\1"), MS_RDONLY);
  if (!disk) GTEST_SKIP() << "this user may not mount a small disk";
  EXPECT_TRUE(browser::WriteChromiumDataFiles(folder, "doc"));
  EXPECT_EQ(Content(folder + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(folder + u"\\2\\data.json"), "doc");
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create C:\\test\\ext\\1\\data.json, error=0x00000005\n"));
}

TEST_F(DataFileFaults, OnAFullDiskIsCutShortAndTheNextWriteHealsIt) {
  const std::u16string folder = machine.Folder() + u"small";
  const std::u16string file = folder + u"\\data.json";
  MakeFolder(folder);
  const SmallDisk disk(machine.HostPath(folder));
  if (!disk) GTEST_SKIP() << "this user may not mount a small disk";
  EXPECT_FALSE(browser::WriteDataFile(std::string(100000, 'x'), file));
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to write to C:\\test\\small\\data.json, error=0x00000070\n"));
  EXPECT_TRUE(browser::WriteDataFile("small", file));
  EXPECT_EQ(Content(file), "small");
}

}  // namespace
}  // namespace resident
