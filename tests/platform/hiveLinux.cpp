// The hives as files: what is read from registry text, what is written, and what other processes may do meanwhile.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "platform/linux/descriptor.h"
#include "platform/linux/machine.h"
#include "platform/linux/registryImport.h"
#include "platform/linux/testHooks.h"
#include "platform/module.h"
#include "platform/raii.h"
#include "tests/platform/registrySupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using registryTests::kBase;
using support::Hive;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view kHead =
    "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Software\\LumenarTest]\n";

std::string PathOf(const char* file) { return machine::DataFolder() + "/" + file; }

std::string FileText(const char* file) {
  std::ifstream stream(PathOf(file), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Writes the file as an administrator's tool would, under another name first.
void WriteFile(const char* file, std::string_view text) {
  std::ofstream(PathOf("edited"), std::ios::binary) << text;
  ASSERT_EQ(std::rename(PathOf("edited").c_str(), PathOf(file).c_str()), 0);
}

using Data = std::vector<std::uint8_t>;

Data TextData(std::u16string_view text) {
  Data data((text.size() + 1) * 2);
  std::memcpy(data.data(), text.data(), text.size() * 2);
  return data;
}

// A value of the test's key: nothing when it or the key is not there.
std::optional<std::pair<DWORD, Data>> ValueOf(const char16_t* name, const std::u16string& key = kBase,
                                              HKEY root = HKEY_CURRENT_USER) {
  UniqueKey opened;
  if (RegOpenKeyExW(root, key.c_str(), 0, KEY_READ, opened.put()) != 0) return std::nullopt;
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExW(opened.get(), name, nullptr, &type, nullptr, &size) != 0) return std::nullopt;
  Data data(size + 1);
  if (RegQueryValueExW(opened.get(), name, nullptr, &type, data.data(), &size) != 0) return std::nullopt;
  data.resize(size);
  return std::pair(type, data);
}

auto Is(DWORD type, Data data) { return testing::Optional(std::pair(type, std::move(data))); }

LSTATUS Open(const std::u16string& key, REGSAM access = KEY_READ, HKEY root = HKEY_CURRENT_USER) {
  UniqueKey opened;
  return RegOpenKeyExW(root, key.c_str(), 0, access, opened.put());
}

class HiveFile : public testing::Test {
 protected:
  support::Machine machine_;
};

using HiveReading = HiveFile;
using HiveWriting = HiveFile;
using HiveImport = HiveFile;
using HiveView = HiveFile;
using HiveFaults = HiveFile;

// ---- Reading ----

TEST_F(HiveReading, AMachineWithoutHivesHasTheRoots) {
  EXPECT_EQ(Open(u""), 0);
  EXPECT_EQ(Open(u"", KEY_READ, HKEY_LOCAL_MACHINE), 0);
  EXPECT_EQ(Open(u"Software"), 2);
}

TEST_F(HiveReading, TakesEveryKindOfValue) {
  WriteFile("user.reg", std::string(kHead) +
                            "; a comment\n"
                            "@=\"default\"\n"
                            "\"text\"=\"a \\\\ and a \\\" \xC3\xA9\"\n"
                            "\"number\"=dword:0000002a\n"
                            "\"short number\" = dword:2A ; with a comment\n"
                            "\"bytes\"=hex:01,02,\\\n"
                            "  ff\n"
                            "\"none\"=hex:\n"
                            "\"multi\"=hex(7):61,00,00,00,00,00\n"
                            "\"big type\"=hex(12345678):01\n"
                            "\"a=b \\\"q\\\"\"=HEX(b):1,2,3,4,5,6,7,8\n");
  EXPECT_THAT(ValueOf(u""), Is(REG_SZ, TextData(u"default")));
  EXPECT_THAT(ValueOf(u"text"), Is(REG_SZ, TextData(u"a \\ and a \" \u00e9")));
  EXPECT_THAT(ValueOf(u"number"), Is(REG_DWORD, {42, 0, 0, 0}));
  EXPECT_THAT(ValueOf(u"short number"), Is(REG_DWORD, {42, 0, 0, 0}));
  EXPECT_THAT(ValueOf(u"bytes"), Is(REG_BINARY, {1, 2, 255}));
  EXPECT_THAT(ValueOf(u"none"), Is(REG_BINARY, {}));
  EXPECT_THAT(ValueOf(u"multi"), Is(REG_MULTI_SZ, {0x61, 0, 0, 0, 0, 0}));
  EXPECT_THAT(ValueOf(u"big type"), Is(0x12345678, {1}));
  EXPECT_THAT(ValueOf(u"a=b \"q\""), Is(REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(HiveReading, TakesEveryEncodingOfTheText) {
  const std::u16string text =
      u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\LumenarTest]\r\n"
      u"\"\u00e9\xd83d\xde00\"=\"\u4e00\"\r\n";
  std::string wide = "\xFF\xFE";
  for (const char16_t unit : text) {
    wide += static_cast<char>(unit & 0xFF);
    wide += static_cast<char>(unit >> 8);
  }
  for (const std::string& bytes : {wide, "\xEF\xBB\xBF" + support::Narrow(text), support::Narrow(text)}) {
    WriteFile("user.reg", bytes);
    EXPECT_THAT(ValueOf(u"\u00e9\xd83d\xde00"), Is(REG_SZ, TextData(u"\u4e00")));
  }
}

TEST_F(HiveReading, OfAForeignEncodingFindsNothingAndEndsWell) {
  std::string wide;
  for (const char unit : std::string(kHead) + "\"v\"=dword:00000001\n") {
    wide += '\0';
    wide += unit;
  }
  for (const std::string& bytes : {"\xFE\xFF" + wide, wide, std::string("\xFF\xFE"), std::string("\xFF\xFE["),
                                   std::string("\xEF\xBB"), std::string(5000, '\0'), std::string(5000, '\xFF')}) {
    WriteFile("user.reg", bytes);
    EXPECT_EQ(Open(u""), 0);
    EXPECT_EQ(ValueOf(u"v"), std::nullopt);
  }
}

TEST_F(HiveReading, PassesOverWhatItCannotRead) {
  WriteFile("user.reg",
            "\"before any key\"=dword:1\n" + std::string(kHead) +
                "garbage\n"
                "\"open=dword:1\n"
                "\"no equals\" dword:1\n"
                "\"x1\"=dword:\n\"x2\"=dword:123456789\n\"x3\"=dword:1g\n\"x4\"=hex:0g\n\"x5\"=hex:123\n"
                "\"x6\"=hex(:1\n\"x7\"=hex():1\n\"x8\"=\"unclosed\n\"x9\"=\"closed\" and more\n\"x10\"=what\n"
                "\"x11\"=hex:01,\\\n\"after\"=dword:1\n"
                "[HKEY_CURRENT_USER\\Software\\Half\n\"lost1\"=dword:1\n"
                "[HKEY_CLASSES_ROOT\\x]\n\"lost2\"=dword:1\n[HKEY_CURRENT_USERS\\x]\n\"lost3\"=dword:1\n"
                "[HKEY_LOCAL_MACHINE\\x]\n\"lost4\"=dword:1\n[]\n[-]\n[-HKEY_CURRENT_USER]\n[\n]\n\"lost5\"=dword:1\n"
                "[hkcu\\Software\\LumenarTest]\n\"last\"=dword:1\n");
  EXPECT_THAT(ValueOf(u"after"), Is(REG_DWORD, {1, 0, 0, 0}));
  EXPECT_THAT(ValueOf(u"last"), Is(REG_DWORD, {1, 0, 0, 0}));
  for (int i = 1; i <= 11; ++i) {
    const std::u16string name = support::Wide("x" + std::to_string(i));
    EXPECT_EQ(ValueOf(name.c_str()), std::nullopt) << i;
  }
  UniqueKey root;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"", 0, KEY_READ, root.put()), 0);
  DWORD count = 0;
  ASSERT_EQ(RegQueryInfoKeyW(root.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            0);
  EXPECT_EQ(count, 1U);
}

TEST_F(HiveReading, CutAtAnyByteGivesWholeValuesOrNone) {
  const std::string whole = std::string(kHead) +
                            "@=\"default\"\n\"quoted \\\"text\\\"\"=\"back\\\\slash\\\"\"\n\"number\"=dword:12345678\n"
                            "\"bytes\"=hex:01,02,03,\\\n  04,05,06\n\n"
                            "[HKEY_CURRENT_USER\\Software\\LumenarTest\\sub]\n\"after\"=dword:00000001\n";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    WriteFile("user.reg", whole.substr(0, length));
    const auto isWholeOrNone = [](const auto& value, DWORD type, const Data& data) {
      return !value || *value == std::pair(type, data);
    };
    EXPECT_TRUE(isWholeOrNone(ValueOf(u""), REG_SZ, TextData(u"default"))) << length;
    EXPECT_TRUE(isWholeOrNone(ValueOf(u"quoted \"text\""), REG_SZ, TextData(u"back\\slash\""))) << length;
    EXPECT_TRUE(isWholeOrNone(ValueOf(u"number"), REG_DWORD, {0x78, 0x56, 0x34, 0x12})) << length;
    EXPECT_TRUE(isWholeOrNone(ValueOf(u"bytes"), REG_BINARY, {1, 2, 3, 4, 5, 6})) << length;
  }
  EXPECT_THAT(ValueOf(u"after", u"Software\\LumenarTest\\sub"), Is(REG_DWORD, {1, 0, 0, 0}));
}

TEST_F(HiveReading, PathsThatNoHiveTakesArePassedOver) {
  std::string deep = "[HKEY_CURRENT_USER";
  for (int i = 0; i < 100000; ++i) deep += "\\a";
  WriteFile("user.reg", deep + "]\n[HKEY_CURRENT_USER\\" + std::string(300, 'n') + "]\n" + std::string(kHead));
  EXPECT_EQ(Open(kBase), 0);
  EXPECT_EQ(Open(u"a"), 2);
}

TEST_F(HiveReading, SeesAnEditThatKeepsTheFilesLength) {
  for (const char digit : {'1', '2', '3', '4', '5'}) {
    WriteFile("user.reg", std::string(kHead) + "\"v\"=dword:0000000" + digit + "\n");
    EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {static_cast<std::uint8_t>(digit - '0'), 0, 0, 0}));
  }
}

TEST_F(HiveReading, SeesANewFileAlsoWhereTheOldOneKeepsAnotherName) {
  WriteFile("user.reg", std::string(kHead) + "\"a\"=\"old\"\n");
  ASSERT_EQ(link(PathOf("user.reg").c_str(), PathOf("backup").c_str()), 0);
  ASSERT_EQ(ValueOf(u"a")->second, TextData(u"old"));
  WriteFile("user.reg", std::string(kHead) + "\"a\"=\"new\"\n");
  EXPECT_EQ(ValueOf(u"a")->second, TextData(u"new"));
  ASSERT_EQ(std::rename(PathOf("backup").c_str(), PathOf("user.reg").c_str()), 0);
  EXPECT_EQ(ValueOf(u"a")->second, TextData(u"old"));
}

TEST_F(HiveReading, OfAFileThatVanishesIsAnEmptyHive) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  ASSERT_EQ(unlink(PathOf("user.reg").c_str()), 0);
  EXPECT_EQ(Open(kBase), 2);
  support::SetNumber(Hive::User, kBase, u"v", 2);
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {2, 0, 0, 0}));
}

TEST_F(HiveReading, OfWhatIsNoFileFails) {
  ASSERT_EQ(mkdir(PathOf("user.reg").c_str(), 0700), 0);
  EXPECT_NE(Open(u""), 0);
}

TEST_F(HiveReading, HoldsAHundredThousandKeys) {
  std::string text = "Windows Registry Editor Version 5.00\n";
  for (unsigned i = 0; i < 100000; ++i) {
    // Not in the order of their names.
    text += "[HKEY_CURRENT_USER\\Software\\LumenarTest\\k" + std::to_string(i * 7919 % 100000) + "]\n\"v\"=dword:1\n";
  }
  WriteFile("user.reg", text);
  UniqueKey base;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kBase, 0, KEY_READ, base.put()), 0);
  DWORD index = 0;
  char16_t name[20];
  while (RegEnumKeyW(base.get(), index, name, 20) == 0) ++index;
  EXPECT_EQ(index, 100000U);
  EXPECT_THAT(ValueOf(u"v", u"Software\\LumenarTest\\k99999"), Is(REG_DWORD, {1, 0, 0, 0}));
  support::SetNumber(Hive::User, u"Software\\LumenarTest\\k50000", u"w", 2);
  EXPECT_THAT(ValueOf(u"v", u"Software\\LumenarTest\\k0"), Is(REG_DWORD, {1, 0, 0, 0}));
}

// ---- Writing ----

TEST_F(HiveWriting, IsTheTextThatAdministratorsExport) {
  support::SetText(Hive::User, kBase, u"", u"default");
  support::SetText(Hive::User, kBase, u"a \\ \"b\"", u"c:\\d \"\u00e9\"");
  support::SetNumber(Hive::User, kBase, u"number", 42);
  support::SetBytes(Hive::User, kBase, u"bytes", REG_BINARY, {1, 255});
  support::SetBytes(Hive::User, kBase, u"unterminated", REG_SZ, {0x61, 0});
  support::SetBytes(Hive::User, kBase, u"multi", REG_MULTI_SZ, {0, 0});
  support::CreateKey(Hive::User, u"Software\\LumenarTest\\empty");
  EXPECT_EQ(FileText("user.reg"),
            "Windows Registry Editor Version 5.00\n"
            "\n"
            "[HKEY_CURRENT_USER\\Software\\LumenarTest]\n"
            "@=\"default\"\n"
            "\"a \\\\ \\\"b\\\"\"=\"c:\\\\d \\\"\xC3\xA9\\\"\"\n"
            "\"bytes\"=hex:01,ff\n"
            "\"multi\"=hex(7):00,00\n"
            "\"number\"=dword:0000002a\n"
            "\"unterminated\"=hex(1):61,00\n"
            "\n"
            "[HKEY_CURRENT_USER\\Software\\LumenarTest\\empty]\n");
  support::SetNumber(Hive::Machine, kBase, u"number", 1);
  EXPECT_THAT(FileText("machine.reg"), HasSubstr("\n[HKEY_LOCAL_MACHINE\\Software\\LumenarTest]\n\"number\"=dword:"));
}

TEST_F(HiveWriting, KeepsItsLinesShort) {
  support::SetBytes(Hive::User, kBase, u"bytes", REG_BINARY, Data(1000, 0xAB));
  std::istringstream lines(FileText("user.reg"));
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 90U);
  EXPECT_THAT(ValueOf(u"bytes"), Is(REG_BINARY, Data(1000, 0xAB)));
}

// Reads the hive anew, as another process would.
void ForgetHive() { WriteFile("user.reg", FileText("user.reg")); }

TEST_F(HiveWriting, NamesOfAnySortComeBack) {
  const std::u16string names[] = {u"a]b",      u"[x]",     u"-minus", u"\x1bn",  u"\x1b",
                                  u"li\nne\r", u" blank ", u"\xd800", u"\xdc80", u"\u00e9\u4e00\xd83d\xde00",
                                  u";",        u"@",       u"\"q\""};
  for (const std::u16string& name : names) {
    support::SetText(Hive::User, std::u16string(kBase) + u"\\" + name, name, name);
  }
  ForgetHive();
  for (const std::u16string& name : names) {
    EXPECT_THAT(ValueOf(name.c_str(), std::u16string(kBase) + u"\\" + name), Is(REG_SZ, TextData(name)))
        << support::Narrow(name);
  }
}

TEST_F(HiveWriting, DataOfAnySortComeBack) {
  Data data;
  for (std::uint32_t i = 0; i < 70000; ++i) data.push_back(static_cast<std::uint8_t>(i * i >> 7));
  for (const DWORD type :
       {REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD, 0xFFFFFFFF}) {
    for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 25U, 26U, 50U, 70000U}) {
      const Data part(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
      support::SetBytes(Hive::User, kBase, u"v", type, part);
      ForgetHive();
      ASSERT_THAT(ValueOf(u"v"), Is(type, part)) << type << " " << size;
    }
  }
}

TEST_F(HiveWriting, IsForTheUserAlone) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  struct stat status;
  ASSERT_EQ(stat(PathOf("user.reg").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(HiveWriting, ThatFailsLeavesTheHiveAsItWas) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  // Nothing can be written under the temporary name.
  ASSERT_EQ(mkdir(PathOf("user.reg.new").c_str(), 0700), 0);
  UniqueKey key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kBase, 0, KEY_ALL_ACCESS, key.put()), 0);
  const DWORD two = 2;
  EXPECT_NE(RegSetValueExW(key.get(), u"v", 0, REG_DWORD, &two, sizeof two), 0);
  EXPECT_NE(RegDeleteValueW(key.get(), u"v"), 0);
  EXPECT_NE(RegDeleteTreeW(HKEY_CURRENT_USER, kBase), 0);
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {1, 0, 0, 0}));
  ASSERT_EQ(rmdir(PathOf("user.reg.new").c_str()), 0);
  EXPECT_EQ(RegSetValueExW(key.get(), u"v", 0, REG_DWORD, &two, sizeof two), 0);
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {2, 0, 0, 0}));
}

CHILD_BODY(HoldsTheHiveHalfWritten) {
  const int lock = open(PathOf("user.reg.lock").c_str(), O_RDWR | O_CREAT, 0600);
  if (flock(lock, LOCK_EX) != 0) return 1;
  std::ofstream(PathOf("user.reg.new")) << "Windows Registry Editor Version 5.00\n\n[HKEY_CURR";
  support::Say("writing");
  (void)support::Hear();
  return 0;
}

TEST_F(HiveWriting, AWriterThatIsKilledLeavesTheHiveAndNoLock) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  support::Process writer = support::StartChild("HoldsTheHiveHalfWritten");
  ASSERT_EQ(writer.Hear(), "writing");
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {1, 0, 0, 0}));
  writer.Kill();
  writer.Wait();
  support::SetNumber(Hive::User, kBase, u"w", 2);
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {1, 0, 0, 0}));
  EXPECT_THAT(ValueOf(u"w"), Is(REG_DWORD, {2, 0, 0, 0}));
}

CHILD_BODY(WritesUntilItIsKilled) {
  support::Say("writing");
  for (std::uint32_t i = 0;; ++i) support::SetNumber(Hive::User, kBase, u"number", i);
}

TEST_F(HiveWriting, WritersThatAreKilledAnywhereLoseNothing) {
  support::SetBytes(Hive::User, kBase, u"kept", REG_BINARY, Data(20000, 7));
  for (int i = 0; i < 20; ++i) {
    support::Process writer = support::StartChild("WritesUntilItIsKilled");
    ASSERT_EQ(writer.Hear(), "writing");
    // Its first values have to arrive, so that it is killed amid its writing.
    for (int seen = 0; seen < i; ++seen) ASSERT_THAT(ValueOf(u"kept"), Is(REG_BINARY, Data(20000, 7)));
    writer.Kill();
    writer.Wait();
    ASSERT_THAT(ValueOf(u"kept"), Is(REG_BINARY, Data(20000, 7)));
    support::SetNumber(Hive::User, kBase, u"own", static_cast<std::uint32_t>(i));
  }
}

// ---- What an open key sees of others' writing ----

std::string Numbered(int number) { return std::string(kHead) + "\"v\"=dword:0000000" + std::to_string(number) + "\n"; }

class HiveSharing : public HiveFile {
 protected:
  // A hive that was written by way of the platform, so that its writes are counted, and the test's key in it.
  HiveSharing() {
    support::SetNumber(Hive::User, kBase, u"v", 1);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kBase, 0, KEY_READ, key_.put()), 0);
    // Often: the count is looked at by those alone who ask often.
    for (int i = 0; i < 200; ++i) EXPECT_EQ(Number(), 1U);
  }

  // Through the key that is open all the while.
  [[nodiscard]] DWORD Number() const {
    DWORD number = 0;
    DWORD size = sizeof number;
    EXPECT_EQ(RegQueryValueExW(key_.get(), u"v", nullptr, nullptr, &number, &size), 0);
    return number;
  }

  UniqueKey key_;
};

CHILD_BODY(WritesEachNumberThatItHears) {
  for (std::string line = support::Hear(); !line.empty(); line = support::Hear()) {
    support::SetNumber(Hive::User, kBase, u"v", static_cast<std::uint32_t>(std::stoi(line)));
    support::Say("written");
  }
  return 0;
}

TEST_F(HiveSharing, EachWriteOfAnotherProcessIsSeenAtOnce) {
  support::Process writer = support::StartChild("WritesEachNumberThatItHears");
  for (DWORD number = 2; number < 200; ++number) {
    writer.Say(std::to_string(number));
    ASSERT_EQ(writer.Hear(), "written");
    ASSERT_EQ(Number(), number);
  }
  EXPECT_EQ(writer.Wait(), 0);
}

TEST_F(HiveSharing, AnEditByAnotherProgramIsSeenFromTheNextOpenOn) {
  WriteFile("user.reg", Numbered(2));
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {2, 0, 0, 0}));
  EXPECT_EQ(Number(), 2U);
}

TEST_F(HiveSharing, AnEditByAnotherProgramIsSeenAtOnceInTheRoot) {
  const auto count = [] {
    DWORD subkeys = 0;
    EXPECT_EQ(RegQueryInfoKeyW(HKEY_CURRENT_USER, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr, nullptr),
              0);
    return subkeys;
  };
  EXPECT_EQ(count(), 1U);
  WriteFile("user.reg", std::string(kHead) + "[HKEY_CURRENT_USER\\Second]\n");
  EXPECT_EQ(count(), 2U);
}

TEST_F(HiveSharing, AnEditByAnotherProgramIsTakenInByTheNextWrite) {
  WriteFile("user.reg", Numbered(2) + "\"edited\"=dword:00000001\n");
  support::SetNumber(Hive::User, kBase, u"own", 1);
  EXPECT_EQ(Number(), 2U);
  EXPECT_THAT(ValueOf(u"edited"), Is(REG_DWORD, {1, 0, 0, 0}));
}

// The count of writes, which stands at the begin of the lock's file.
class CountedWrites {
 public:
  [[nodiscard]] std::uint64_t Get() const {
    std::uint64_t count = 0;
    EXPECT_EQ(pread(file_.get(), &count, sizeof count, 0), static_cast<ssize_t>(sizeof count));
    return count;
  }
  void Set(std::uint64_t count) const {
    EXPECT_EQ(pwrite(file_.get(), &count, sizeof count, 0), static_cast<ssize_t>(sizeof count));
  }

 private:
  Descriptor file_{open(PathOf("user.reg.lock").c_str(), O_RDWR | O_CLOEXEC)};
};

TEST_F(HiveSharing, WhatAWriterWroteThatDiedBeforeItSaidSoIsSeenAtOnce) {
  const CountedWrites writes;
  const std::uint64_t count = writes.Get();
  ASSERT_EQ(count % 2, 0U);
  writes.Set(count + 1);
  for (const int number : {2, 3}) {
    WriteFile("user.reg", Numbered(number));
    EXPECT_EQ(Number(), static_cast<DWORD>(number));
  }
  support::SetNumber(Hive::User, kBase, u"own", 1);
  EXPECT_EQ(writes.Get(), count + 2);
  EXPECT_EQ(Number(), 3U);
}

TEST_F(HiveSharing, WritesAreSeenFromTheNextOpenOnWhenTheirCountWasTakenAway) {
  ASSERT_EQ(unlink(PathOf("user.reg.lock").c_str()), 0);
  support::Process writer = support::StartChild("WritesEachNumberThatItHears");
  for (const DWORD number : {2U, 3U, 4U}) {
    writer.Say(std::to_string(number));
    ASSERT_EQ(writer.Hear(), "written");
    // The first open finds the new count as well.
    if (number == 2) {
      EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {2, 0, 0, 0}));
    }
    EXPECT_EQ(Number(), number);
  }
  EXPECT_EQ(writer.Wait(), 0);
}

TEST_F(HiveSharing, WithoutACountEveryEditIsSeenAtOnce) {
  ASSERT_EQ(unlink(PathOf("user.reg.lock").c_str()), 0);
  ASSERT_EQ(mkdir(PathOf("user.reg.lock").c_str(), 0700), 0);
  WriteFile("user.reg", Numbered(2));
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {2, 0, 0, 0}));
  for (const int number : {3, 4}) {
    WriteFile("user.reg", Numbered(number));
    EXPECT_EQ(Number(), static_cast<DWORD>(number));
  }
}

// ---- Import ----

TEST_F(HiveImport, MergesIntoBothHives) {
  support::SetNumber(Hive::User, kBase, u"kept", 1);
  support::SetNumber(Hive::User, kBase, u"changed", 1);
  support::SetNumber(Hive::User, kBase, u"deleted", 1);
  support::SetNumber(Hive::User, u"Software\\LumenarTest\\sub\\deep", u"v", 1);
  ASSERT_TRUE(registry::ImportRegText(std::string(kHead) +
                                      "\"changed\"=dword:00000002\n\"DELETED\"=-\n\"missing\"=-\n"
                                      "[-HKEY_CURRENT_USER\\Software\\LumenarTest\\Sub]\n\"nowhere\"=dword:1\n"
                                      "[HKEY_LOCAL_MACHINE\\Software\\LumenarTest]\n\"machine\"=\"text\""));
  EXPECT_THAT(ValueOf(u"kept"), Is(REG_DWORD, {1, 0, 0, 0}));
  EXPECT_THAT(ValueOf(u"changed"), Is(REG_DWORD, {2, 0, 0, 0}));
  EXPECT_EQ(ValueOf(u"deleted"), std::nullopt);
  EXPECT_EQ(Open(u"Software\\LumenarTest\\sub"), 2);
  EXPECT_EQ(ValueOf(u"nowhere"), std::nullopt);
  EXPECT_THAT(ValueOf(u"machine", kBase, HKEY_LOCAL_MACHINE), Is(REG_SZ, TextData(u"text")));
}

TEST_F(HiveImport, WritesNoHiveThatTheTextDoesNotName) {
  ASSERT_TRUE(registry::ImportRegText(kHead));
  EXPECT_NE(access(PathOf("machine.reg").c_str(), F_OK), 0);
  EXPECT_EQ(access(PathOf("user.reg").c_str(), F_OK), 0);
}

TEST_F(HiveImport, ThatCannotBeWrittenFails) {
  ASSERT_EQ(mkdir(PathOf("user.reg.new").c_str(), 0700), 0);
  EXPECT_FALSE(registry::ImportRegText(kHead));
  EXPECT_NE(GetLastError(), 0U);
}

// ---- The 32-bit view: where Wine takes the user's "Software" and native opens out of it, our contract does not ----

TEST_F(HiveView, IsStrictInTheUsersHiveAndForNativeOpens) {
  support::CreateKey(Hive::User, u"Software\\LumenarTest\\only64");
  support::CreateKey(Hive::User, u"Software\\Wow6432Node\\LumenarTest\\only32");
  EXPECT_EQ(Open(u"Software\\LumenarTest\\only64", KEY_READ | KEY_WOW64_32KEY), 2);
  EXPECT_EQ(Open(u"Software\\LumenarTest\\only32", KEY_READ | KEY_WOW64_32KEY), 0);
  HMODULE module;
  ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &module));
  const auto openUser = reinterpret_cast<RtlOpenCurrentUserFunction>(GetProcAddress(module, "RtlOpenCurrentUser"));
  const auto openKey = reinterpret_cast<NtOpenKeyFunction>(GetProcAddress(module, "NtOpenKey"));
  UniqueNativeKey user;
  ASSERT_EQ(openUser(KEY_READ | KEY_WOW64_32KEY, user.put()), STATUS_SUCCESS);
  const auto open = [&](std::u16string_view path, REGSAM access) {
    const UNICODE_STRING name{static_cast<WORD>(path.size() * 2), static_cast<WORD>(path.size() * 2), path.data()};
    const OBJECT_ATTRIBUTES attributes{sizeof attributes, user.get(), &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr};
    UniqueNativeKey key;
    return openKey(key.put(), access, &attributes);
  };
  EXPECT_EQ(open(u"Software\\LumenarTest\\only64", KEY_READ | KEY_WOW64_32KEY), STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(open(u"Software\\LumenarTest\\only32", KEY_READ | KEY_WOW64_32KEY), STATUS_SUCCESS);
  EXPECT_EQ(open(u"Software\\LumenarTest\\only64", KEY_READ), STATUS_SUCCESS);
}

// ---- Handles and faults ----

TEST_F(HiveFile, OpenKeysAreListedByTheirKinds) {
  const std::vector<std::string> before = test::LiveHandles();
  UniqueKey key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"", 0, KEY_READ, key.put()), 0);
  HMODULE module;
  ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &module));
  const auto openUser = reinterpret_cast<RtlOpenCurrentUserFunction>(GetProcAddress(module, "RtlOpenCurrentUser"));
  const auto openKey = reinterpret_cast<NtOpenKeyFunction>(GetProcAddress(module, "NtOpenKey"));
  UniqueNativeKey user;
  ASSERT_EQ(openUser(KEY_READ, user.put()), STATUS_SUCCESS);
  const UNICODE_STRING name{};
  const OBJECT_ATTRIBUTES attributes{sizeof attributes, user.get(), &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr};
  UniqueNativeKey native;
  ASSERT_EQ(openKey(native.put(), KEY_READ, &attributes), STATUS_SUCCESS);
  std::vector<std::string> now = test::LiveHandles();
  now.erase(now.begin(), now.begin() + static_cast<std::ptrdiff_t>(before.size()));
  EXPECT_THAT(now, ElementsAre("RegistryKey", "CurrentUserHive", "NativeKey"));
}

TEST_F(HiveFaults, EveryCallFailsWithTheErrorThatTheTestChose) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  UniqueKey key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kBase, 0, KEY_ALL_ACCESS, key.put()), 0);
  HMODULE module;
  ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &module));
  const auto openUser = reinterpret_cast<RtlOpenCurrentUserFunction>(GetProcAddress(module, "RtlOpenCurrentUser"));
  UniqueKey opened;
  UniqueNativeKey user;
  HMODULE none;
  DWORD number = 0;
  char16_t name[10];
  test::ArmFaults(1, true, ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(RegOpenKeyExW(key.get(), u"", 0, KEY_READ, opened.put()), 8);
  EXPECT_EQ(RegCreateKeyExW(key.get(), u"new", 0, nullptr, 0, KEY_READ, nullptr, opened.put(), nullptr), 8);
  EXPECT_EQ(RegEnumKeyW(key.get(), 0, name, 10), 8);
  EXPECT_EQ(RegEnumKeyExW(key.get(), 0, name, &number, nullptr, nullptr, nullptr, nullptr), 8);
  EXPECT_EQ(RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &number, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            8);
  EXPECT_EQ(RegQueryValueExW(key.get(), u"v", nullptr, nullptr, nullptr, nullptr), 8);
  EXPECT_EQ(RegGetValueW(key.get(), nullptr, u"v", RRF_RT_ANY, nullptr, nullptr, nullptr), 8);
  EXPECT_EQ(RegSetValueExW(key.get(), u"v", 0, REG_BINARY, nullptr, 0), 8);
  EXPECT_EQ(RegDeleteValueW(key.get(), u"v"), 8);
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, kBase), 8);
  EXPECT_EQ(openUser(KEY_READ, user.put()), STATUS_INSUFFICIENT_RESOURCES);
  EXPECT_FALSE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &none));
  EXPECT_TRUE(GetProcAddress(module, "NtOpenKey") == nullptr);
  EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
  test::DisarmFaults();
  EXPECT_FALSE(opened);
  EXPECT_THAT(ValueOf(u"v"), Is(REG_DWORD, {1, 0, 0, 0}));
}

}  // namespace
