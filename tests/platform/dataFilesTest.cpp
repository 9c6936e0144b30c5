// Files that are replaced as a whole, and listings of folders.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/raii.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using testing::UnorderedElementsAre;

UniqueFile Create(const std::u16string& path) {
  return UniqueFile(
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

DWORD ErrorOfCreating(const std::u16string& path) {
  const UniqueFile file = Create(path);
  const DWORD error = GetLastError();
  return file ? ERROR_SUCCESS : error;
}

CHILD_BODY(OpensTheFile) {
  support::Say(std::to_string(ErrorOfCreating(support::Wide(arguments.at(0)))));
  return 0;
}

class DataFiles : public testing::Test {
 protected:
  [[nodiscard]] std::string Content() const {
    std::ifstream stream(machine.HostPath(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  support::Machine machine;
  std::u16string path = machine.Folder() + u"file.json";
};

TEST_F(DataFiles, AreMadeOrEmptiedAndWritten) {
  std::ofstream(machine.HostPath(path)) << "a longer content";
  UniqueFile file = Create(path);
  ASSERT_TRUE(file);
  DWORD written = 7;
  EXPECT_TRUE(WriteFile(file.get(), "ab\n", 3, &written, nullptr));
  EXPECT_EQ(written, 3u);
  EXPECT_TRUE(WriteFile(file.get(), "", 0, &written, nullptr));
  EXPECT_EQ(written, 0u);
  EXPECT_TRUE(WriteFile(file.get(), "c", 1, &written, nullptr));
  file.reset();
  EXPECT_EQ(Content(), "ab\nc");
}

TEST_F(DataFiles, AreNotSharedWithinAProcessNorWithAnother) {
  UniqueFile file = Create(path);
  ASSERT_TRUE(file);
  EXPECT_EQ(ErrorOfCreating(path), ERROR_SHARING_VIOLATION);
  support::Process child = support::StartChild("OpensTheFile", {support::Narrow(path)});
  EXPECT_EQ(child.Hear(), std::to_string(ERROR_SHARING_VIOLATION));
  EXPECT_EQ(child.Wait(), 0);
  file.reset();
  support::Process later = support::StartChild("OpensTheFile", {support::Narrow(path)});
  EXPECT_EQ(later.Hear(), "0");
  EXPECT_EQ(later.Wait(), 0);
}

TEST_F(DataFiles, ThatCannotBeMadeTellWhy) {
  std::filesystem::create_directories(machine.HostPath(path));
  EXPECT_EQ(ErrorOfCreating(path), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOfCreating(machine.Folder() + u"missing\\file"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(ErrorOfCreating(machine.Folder() + u"a|b"), ERROR_INVALID_NAME);
}

TEST_F(DataFiles, AreDeletedOnce) {
  std::ofstream(machine.HostPath(path)) << "x";
  EXPECT_TRUE(DeleteFileW(path.c_str()));
  EXPECT_FALSE(DeleteFileW(path.c_str()));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  std::filesystem::create_directories(machine.HostPath(path));
  EXPECT_FALSE(DeleteFileW(path.c_str()));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(DataFiles, AreListedWithWhatIsAFolder) {
  std::filesystem::create_directories(machine.HostFolder() / "folder");
  std::ofstream(machine.HostPath(path)) << "x";
  WIN32_FIND_DATAW entry{};
  const UniqueFind find(FindFirstFileW((machine.Folder() + u"*").c_str(), &entry));
  ASSERT_TRUE(find);
  std::vector<std::u16string> folders;
  std::vector<std::u16string> files;
  do {
    const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    (isFolder ? folders : files).emplace_back(entry.cFileName);
  } while (FindNextFileW(find.get(), &entry));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_THAT(folders, UnorderedElementsAre(u".", u"..", u"folder"));
  EXPECT_THAT(files, UnorderedElementsAre(u"file.json"));
}

TEST_F(DataFiles, AFolderThatIsMissingCannotBeListed) {
  WIN32_FIND_DATAW entry{};
  EXPECT_FALSE(FindFirstFileW((machine.Folder() + u"missing\\*").c_str(), &entry));
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

}  // namespace
