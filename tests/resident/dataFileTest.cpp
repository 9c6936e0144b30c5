// Data files on the disk, and the folders that hold them.
#include "browser/dataFile.h"

#include <fstream>

#include "platform/error.h"
#include "platform/raii.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class DataFile : public TracedResidentTest {
 protected:
  std::u16string folder = machine.Folder() + u"ext";
  std::u16string file = folder + u"\\data.json";
};

platform::UniqueFile OpenUnshared(const std::u16string& file) {
  return platform::UniqueFile(platform::CreateFileW(file.c_str(), platform::GENERIC_WRITE, 0, nullptr,
                                                    platform::CREATE_ALWAYS, platform::FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST_F(DataFile, LiesInItsFolder) { EXPECT_EQ(browser::DataFileIn(u"C:\\x"), u"C:\\x\\data.json"); }

TEST_F(DataFile, IsReplacedAsAWhole) {
  Put(file, "a longer content than the next one");
  EXPECT_TRUE(browser::WriteDataFile("{\n}\n", file));
  EXPECT_EQ(Content(file), "{\n}\n");
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(DataFile, TakesBytesAsTheyAreAndAnEmptyDocumentToo) {
  MakeFolder(folder);
  const std::string bytes("\xEF\xBB\xBF\0\r\n\x1A", 7);
  EXPECT_TRUE(browser::WriteDataFile(bytes, file));
  EXPECT_EQ(Content(file), bytes);
  EXPECT_TRUE(browser::WriteDataFile("", file));
  EXPECT_EQ(Content(file), "");
}

TEST_F(DataFile, WithoutItsFolderCannotBeMadeAndTheFolderIsNotMadeEither) {
  EXPECT_FALSE(browser::WriteDataFile("x", file));
  EXPECT_FALSE(std::filesystem::exists(machine.HostPath(folder)));
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create " + support::Narrow(file) + ", error=0x00000003\n"));
}

TEST_F(DataFile, ThatIsAFolderCannotBeWritten) {
  MakeFolder(file);
  EXPECT_FALSE(browser::WriteDataFile("x", file));
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create " + support::Narrow(file) + ", error=0x00000005\n"));
}

TEST_F(DataFile, ThatIsOpenElsewhereKeepsItsContent) {
  MakeFolder(folder);
  const platform::UniqueFile other = OpenUnshared(file);
  ASSERT_TRUE(other);
  platform::DWORD written = 0;
  ASSERT_TRUE(platform::WriteFile(other.get(), "old", 3, &written, nullptr));
  EXPECT_FALSE(browser::WriteDataFile("new", file));
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create " + support::Narrow(file) + ", error=0x00000020\n"));
  EXPECT_EQ(std::filesystem::file_size(machine.HostPath(file)), 3u);
}

// The message's path is UTF-8, and the log takes each byte for a unit of its own, from the sign-extended ones of which
// it cannot write on.
TEST_F(DataFile, AFailureIsLoggedAsFarAsItsPathIsAscii) {
  EXPECT_FALSE(browser::WriteDataFile("x", folder + u"\\\u00fc\\data.json"));
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create " + support::Narrow(folder) + "\\"));
}

// The line tells of a deletion that worked: inverted, and kept so.
TEST_F(DataFile, ADeletionThatWorksIsLoggedAsAFailure) {
  Put(file, "x");
  platform::SetLastError(0);
  browser::DeleteDataFile(file);
  EXPECT_EQ(Content(file), std::nullopt);
  EXPECT_THAT(log.Texts(),
              ElementsAre(testing::StartsWith("Failed to delete " + support::Narrow(file) + ", error=0x")));
}

TEST_F(DataFile, ADeletionThatFailsIsNotLogged) {
  browser::DeleteDataFile(file);
  MakeFolder(file);
  browser::DeleteDataFile(file);
  EXPECT_TRUE(std::filesystem::is_directory(machine.HostPath(file)));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(DataFile, VersionsAreTheFoldersThatDoNotBeginWithADot) {
  MakeFolder(folder + u"\\1.0.0_0");
  MakeFolder(folder + u"\\2.1");
  MakeFolder(folder + u"\\\u00fc \u4e2d");
  MakeFolder(folder + u"\\.hidden");
  MakeFolder(folder + u"\\..x");
  Put(folder + u"\\3.0", "a file");
  std::vector<std::u16string> list{u"kept"};
  browser::ListExtensionVersionDirs(list, folder);
  EXPECT_THAT(list, UnorderedElementsAre(u"kept", u"1.0.0_0", u"2.1", u"\u00fc \u4e2d"));
}

TEST_F(DataFile, AFolderThatCannotBeListedHasNoVersionsAndNoMessage) {
  Put(folder + u"\\file", "x");
  std::vector<std::u16string> list;
  browser::ListExtensionVersionDirs(list, folder + u"\\missing");
  browser::ListExtensionVersionDirs(list, folder + u"\\file");
  browser::ListExtensionVersionDirs(list, folder + u"\\bad|name");
  EXPECT_THAT(list, IsEmpty());
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(DataFile, GoesIntoEveryVersion) {
  MakeFolder(folder + u"\\1");
  MakeFolder(folder + u"\\2");
  EXPECT_TRUE(browser::WriteChromiumDataFiles(folder, "doc"));
  EXPECT_EQ(Content(folder + u"\\1\\data.json"), "doc");
  EXPECT_EQ(Content(folder + u"\\2\\data.json"), "doc");
}

TEST_F(DataFile, OneVersionThatCannotTakeItDoesNotKeepItFromTheOthers) {
  for (const char16_t* blocked : {u"1", u"2"}) {
    SCOPED_TRACE(support::Narrow(blocked));
    MakeFolder(folder + u"\\1");
    MakeFolder(folder + u"\\2");
    MakeFolder(folder + u"\\" + blocked + u"\\data.json");
    EXPECT_TRUE(browser::WriteChromiumDataFiles(folder, "doc"));
    EXPECT_EQ(Content(folder + (*blocked == u'1' ? u"\\2" : u"\\1") + u"\\data.json"), "doc");
    std::filesystem::remove_all(machine.HostPath(folder));
  }
}

TEST_F(DataFile, ThatIsReadOnlyKeepsItsContentAndTheOtherVersionsAreWritten) {
  Put(folder + u"\\1\\data.json", "old");
  MakeFolder(folder + u"\\2");
  const std::filesystem::path onDisk = machine.HostPath(folder + u"\\1\\data.json");
  std::filesystem::permissions(onDisk, std::filesystem::perms::owner_read);
  const bool writable = static_cast<bool>(std::ofstream(onDisk, std::ios::app));
  EXPECT_TRUE(browser::WriteChromiumDataFiles(folder, "doc"));
  EXPECT_EQ(Content(folder + u"\\2\\data.json"), "doc");
  EXPECT_EQ(Content(folder + u"\\1\\data.json"), writable ? "doc" : "old") << "a superuser may write it";
  std::filesystem::permissions(onDisk, std::filesystem::perms::owner_all);
}

TEST_F(DataFile, AVersionThatVanishesBeforeItsTurnIsLogged) {
  MakeFolder(folder + u"\\1");
  std::vector<std::u16string> versions;
  browser::ListExtensionVersionDirs(versions, folder);
  ASSERT_THAT(versions, ElementsAre(u"1"));
  std::filesystem::remove_all(machine.HostPath(folder + u"\\1"));
  EXPECT_FALSE(browser::WriteDataFile("doc", browser::DataFileIn(folder + u"\\1")));
  EXPECT_THAT(log.Texts(),
              ElementsAre("Failed to create " + support::Narrow(folder) + "\\1\\data.json, error=0x00000003\n"));
}

TEST_F(DataFile, InNoVersionAtAllIsAFailure) {
  EXPECT_FALSE(browser::WriteChromiumDataFiles(folder, "doc"));
  EXPECT_THAT(log.Texts(), IsEmpty());
  MakeFolder(folder + u"\\1\\data.json");
  EXPECT_FALSE(browser::WriteChromiumDataFiles(folder, "doc"));
}

TEST_F(DataFile, IsDeletedFromEveryVersionAndNothingElseIs) {
  Put(folder + u"\\1\\data.json", "doc");
  Put(folder + u"\\2\\data.json", "doc");
  Put(folder + u"\\2\\manifest.json", "kept");
  Put(folder + u"\\.x\\data.json", "kept");
  browser::DeleteChromiumDataFiles(folder);
  EXPECT_EQ(Content(folder + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(folder + u"\\2\\data.json"), std::nullopt);
  EXPECT_EQ(Content(folder + u"\\2\\manifest.json"), "kept");
  EXPECT_EQ(Content(folder + u"\\.x\\data.json"), "kept");
  EXPECT_EQ(log.Texts().size(), 2u);
}

TEST_F(DataFile, OfFirefoxIsDeletedWithTheKeyThatLeadsToIt) {
  Put(file, "doc");
  support::SetText(Hive::User, kFirefoxKey, u"", file);
  browser::DeleteFirefoxDataFile(folder);
  EXPECT_EQ(Content(file), std::nullopt);
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_TRUE(KeyExists(Hive::User, u"Software\\Mozilla\\ManagedStorage"));
}

}  // namespace
}  // namespace resident
