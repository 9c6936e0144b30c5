#include "platform/files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/machine.h"

namespace {

using namespace platform;

// Opens, writes, closes; what writing said.
int Append(const std::u16string& path, const char16_t* text) {
  TextStream* const stream = _wfopen(path.c_str(), u"a+");
  if (stream == nullptr) return -1000;
  const int written = fputws(text, stream);
  EXPECT_EQ(fclose(stream), 0);
  return written;
}

std::string Contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(TextStream, CreatesTheFileAndAppends) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"log.txt";
  EXPECT_GE(Append(path, u"one"), 0);
  EXPECT_GE(Append(path, u" two"), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), "one two");
}

TEST(TextStream, CreatesTheFileAlsoWhenNothingIsWritten) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"empty.txt";
  EXPECT_GE(Append(path, u""), 0);
  EXPECT_TRUE(std::filesystem::exists(machine.HostPath(path)));
}

TEST(TextStream, TurnsLineEndsIntoTheSystems) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"lines.txt";
  EXPECT_GE(Append(path, u"a\nb\r\n\n"), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), "a\r\nb\r\r\n\r\n");
}

TEST(TextStream, WritesOneByteForAUnitUpToFF) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"bytes.txt";
  EXPECT_GE(Append(path, u"\x01\x7F\x80\xE4\xFF"), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), "\x01\x7F\x80\xE4\xFF");
}

TEST(TextStream, StopsInFrontOfAUnitAboveFF) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"stops.txt";
  EXPECT_LT(Append(path, u"ahead\n\u0100behind"), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), "ahead\r\n");
  EXPECT_GE(Append(path, u"next"), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), "ahead\r\nnext");
}

TEST(TextStream, TakesSeveralTextsAndLongOnes) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"long.txt";
  TextStream* const stream = _wfopen(path.c_str(), u"a+");
  ASSERT_NE(stream, nullptr);
  EXPECT_GE(fputws(std::u16string(100'000, u'x').c_str(), stream), 0);
  EXPECT_GE(fputws(u"y", stream), 0);
  EXPECT_EQ(fclose(stream), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), std::string(100'000, 'x') + "y");
}

TEST(TextStream, TwoAtOnceLoseNothing) {
  const support::Machine machine;
  const std::u16string path = machine.Folder() + u"shared.txt";
  TextStream* const first = _wfopen(path.c_str(), u"a+");
  TextStream* const second = _wfopen(path.c_str(), u"a+");
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_GE(fputws(u"first", first), 0);
  EXPECT_GE(fputws(u"second", second), 0);
  EXPECT_EQ(fclose(second), 0);
  EXPECT_EQ(fclose(first), 0);
  EXPECT_EQ(Contents(machine.HostPath(path)), "secondfirst");
}

TEST(TextStream, CreatesNoFolder) {
  const support::Machine machine;
  EXPECT_EQ(_wfopen((machine.Folder() + u"missing\\log.txt").c_str(), u"a+"), nullptr);
  EXPECT_FALSE(std::filesystem::exists(machine.HostFolder() / "missing"));
}

TEST(TextStream, IsNoFolder) {
  const support::Machine machine;
  std::filesystem::create_directory(machine.HostFolder() / "folder");
  EXPECT_EQ(_wfopen((machine.Folder() + u"folder").c_str(), u"a+"), nullptr);
}

TEST(TextStream, RefusesPathsThatNoFileCanHave) {
  const support::Machine machine;
  EXPECT_EQ(_wfopen(u"", u"a+"), nullptr);
  EXPECT_EQ(_wfopen((machine.Folder() + u"a?b").c_str(), u"a+"), nullptr);
  EXPECT_EQ(_wfopen((machine.Folder() + std::u16string(400, u'x')).c_str(), u"a+"), nullptr);
}

TEST(TemporaryFolder, ExistsAndEndsInABackslash) {
  const support::Machine machine;
  char16_t path[260];
  const DWORD length = GetTempPathW(260, path);
  const std::u16string text = path;
  ASSERT_EQ(length, text.size());
  EXPECT_TRUE(text.starts_with(u"C:\\"));
  EXPECT_TRUE(text.ends_with(u"\\"));
  EXPECT_TRUE(std::filesystem::is_directory(machine.HostPath(text)));
}

TEST(TemporaryFolder, ThatDoesNotFitReportsItsLengthWithTheNul) {
  const support::Machine machine;
  char16_t path[260];
  const DWORD length = GetTempPathW(260, path);
  EXPECT_EQ(GetTempPathW(length, path), length + 1);
  EXPECT_EQ(GetTempPathW(0, nullptr), length + 1);
  EXPECT_EQ(GetTempPathW(length + 1, path), length);
}

}  // namespace
