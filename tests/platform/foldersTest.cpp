// The folders of the machine, and paths as text.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/files.h"
#include "platform/raii.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;

std::u16string Appended(std::u16string_view path, const char16_t* more, std::size_t size = MAX_PATH) {
  char16_t buffer[MAX_PATH] = {};
  path.copy(buffer, MAX_PATH - 1);
  PathCchAppend(buffer, size, more);
  return buffer;
}

std::string Expanded(const char* text) {
  char buffer[260] = {};
  const DWORD size = ExpandEnvironmentStringsA(text, buffer, sizeof buffer);
  EXPECT_EQ(size, std::strlen(buffer) + 1);
  return buffer;
}

std::string Qualified(const std::string& path) {
  char buffer[260] = "untouched";
  return PathSearchAndQualifyA(path.c_str(), buffer, sizeof buffer) ? buffer : "failed";
}

TEST(Folders, LocalApplicationDataHasNoBackslashAtItsEnd) {
  const support::Machine machine;
  char16_t path[MAX_PATH] = u"";
  ASSERT_GE(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, path), 0);
  EXPECT_TRUE(std::u16string_view(path).starts_with(u"C:\\users\\")) << support::Narrow(path);
  EXPECT_TRUE(std::u16string_view(path).ends_with(u"\\AppData\\Local")) << support::Narrow(path);
  EXPECT_LT(SHGetFolderPathW(nullptr, 0x7F, nullptr, 0, path), 0);
}

TEST(Folders, KnownFoldersAreAllocated) {
  const support::Machine machine;
  UniqueTaskMemory<char16_t> path;
  ASSERT_GE(SHGetKnownFolderPath(FOLDERID_ProgramFiles, 0, nullptr, path.put()), 0);
  EXPECT_EQ(std::u16string(path.get()), u"C:\\Program Files");
  ASSERT_GE(SHGetKnownFolderPath(FOLDERID_Documents, 0, nullptr, path.put()), 0);
  EXPECT_TRUE(std::u16string_view(path.get()).ends_with(u"\\Documents"));
  EXPECT_LT(SHGetKnownFolderPath(KNOWNFOLDERID{}, 0, nullptr, path.put()), 0);
  EXPECT_FALSE(path);
}

TEST(PathAppend, PutsOneSeparatorBetween) {
  EXPECT_EQ(Appended(u"C:\\a", u"b"), u"C:\\a\\b");
  EXPECT_EQ(Appended(u"C:\\a\\", u"b\\c"), u"C:\\a\\b\\c");
  EXPECT_EQ(Appended(u"C:\\", u"b"), u"C:\\b");
  EXPECT_EQ(Appended(u"", u"Software\\x"), u"Software\\x");
}

TEST(PathAppend, LeavesAPathThatWouldNotFit) {
  EXPECT_EQ(Appended(u"C:\\a", u"bcd", 9), u"C:\\a\\bcd");
  EXPECT_EQ(Appended(u"C:\\a", u"bcd", 8), u"C:\\a");
  EXPECT_EQ(Appended(std::u16string(250, u'x'), u"0123456789"), std::u16string(250, u'x'));
}

TEST(ExpandEnvironment, ReplacesWhatIsSetAndLeavesTheRest) {
  support::SetEnvironment("LUMENAR_TEST", "value %LUMENAR_TEST%");
  EXPECT_EQ(Expanded("a%LUMENAR_TEST%b"), "avalue %LUMENAR_TEST%b");
  EXPECT_EQ(Expanded("%lumenar_test%"), "value %LUMENAR_TEST%");
  support::UnsetEnvironment("LUMENAR_TEST");
  EXPECT_EQ(Expanded("a%LUMENAR_TEST%b"), "a%LUMENAR_TEST%b");
  EXPECT_EQ(Expanded("50%"), "50%");
  EXPECT_EQ(Expanded(""), "");
}

TEST(ExpandEnvironment, GivesTheSystemsCodePage) {
  support::SetEnvironment("LUMENAR_TEST", "\u00e9\u20ac");
  EXPECT_EQ(Expanded("%LUMENAR_TEST%"), "\xE9\x80");
  support::UnsetEnvironment("LUMENAR_TEST");
}

TEST(ExpandEnvironment, TellsTheSizeOfWhatDoesNotFit) {
  support::SetEnvironment("LUMENAR_TEST", std::string(300, 'x'));
  char buffer[260] = {};
  EXPECT_GT(ExpandEnvironmentStringsA("%LUMENAR_TEST%", buffer, sizeof buffer), sizeof buffer);
  support::UnsetEnvironment("LUMENAR_TEST");
}

TEST(QualifiedPath, IsAbsoluteWithItsDotsCarriedOut) {
  EXPECT_EQ(Qualified("C:\\a\\.\\b\\..\\c"), "C:\\a\\c");
  EXPECT_EQ(Qualified("C:\\..\\a"), "C:\\a");
  EXPECT_EQ(Qualified("C:/a//b/"), "C:\\a\\b\\");
  EXPECT_EQ(Qualified("D:\\x"), "D:\\x");
  EXPECT_EQ(Qualified("C:\\"), "C:\\");
}

TEST(QualifiedPath, OfAShareKeepsServerAndShare) {
  EXPECT_EQ(Qualified("\\\\server\\share\\a\\..\\b"), "\\\\server\\share\\b");
  EXPECT_EQ(Qualified("\\\\server\\share\\..\\..\\b"), "\\\\server\\share\\b");
}

TEST(QualifiedPath, LosesDotsAndSpacesAtItsEnd) {
  EXPECT_EQ(Qualified("C:\\a. ."), "C:\\a");
  EXPECT_EQ(Qualified("C:\\a.b"), "C:\\a.b");
}

TEST(QualifiedPath, ThatDoesNotFitIsAFailure) {
  EXPECT_EQ(Qualified("C:\\" + std::string(256, 'x')), "C:\\" + std::string(256, 'x'));
  EXPECT_EQ(Qualified("C:\\" + std::string(257, 'x')), "failed");
  EXPECT_EQ(Qualified("C:\\" + std::string(5000, 'x')), "failed");
}

}  // namespace
