// The registry's Win32 calls.
#include "platform/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/raii.h"
#include "tests/platform/registrySupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using registryTests::kBase;
using testing::ElementsAre;

constexpr HKEY kNoKey{0x7770};

std::u16string Under(std::u16string_view name) { return std::u16string(kBase) + u"\\" + std::u16string(name); }

LSTATUS Create(HKEY key, const std::u16string& path, REGSAM access, UniqueKey& created, DWORD* disposition = nullptr) {
  return RegCreateKeyExW(key, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, created.put(),
                         disposition);
}

LSTATUS Open(HKEY key, const std::u16string& path, REGSAM access = KEY_READ) {
  UniqueKey opened;
  return RegOpenKeyExW(key, path.c_str(), 0, access, opened.put());
}

LSTATUS SetData(HKEY key, const char16_t* name, DWORD type, const std::vector<std::uint8_t>& data) {
  return RegSetValueExW(key, name, 0, type, data.data(), static_cast<DWORD>(data.size()));
}

struct Stored {
  LSTATUS status;
  DWORD type;
  std::vector<std::uint8_t> data;
  friend bool operator==(const Stored&, const Stored&) = default;
};

Stored Query(HKEY key, const char16_t* name) {
  Stored stored{0, 0, {}};
  DWORD size = 0;
  stored.status = RegQueryValueExW(key, name, nullptr, &stored.type, nullptr, &size);
  if (stored.status != 0) return stored;
  stored.data.resize(size + 1);
  stored.status = RegQueryValueExW(key, name, nullptr, &stored.type, stored.data.data(), &size);
  stored.data.resize(size);
  return stored;
}

std::vector<std::uint8_t> BytesOf(std::u16string_view text) {
  std::vector<std::uint8_t> bytes(text.size() * 2);
  std::memcpy(bytes.data(), text.data(), bytes.size());
  return bytes;
}

std::vector<std::u16string> SubkeysOf(HKEY key) {
  std::vector<std::u16string> names;
  char16_t name[300];
  for (DWORD index = 0;; ++index) {
    DWORD length = 300;
    if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != 0) return names;
    names.emplace_back(name, length);
  }
}

class Registry : public testing::Test {
 protected:
  Registry() { EXPECT_EQ(Create(HKEY_CURRENT_USER, kBase, KEY_ALL_ACCESS, key_), 0); }

  support::Machine machine_;
  UniqueKey key_;
};

using RegistryKeys = Registry;
using RegistryValue = Registry;
using RegistryGetValue = Registry;
using RegistryAccess = Registry;
using RegistryDeletedKey = Registry;

// ---- Keys ----

TEST_F(RegistryKeys, AMissingKeyIsNotFoundAndTheResultIsNull) {
  HKEY result{0x55};
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"Software\\LumenarTest\\none", 0, KEY_READ, &result), 2);
  EXPECT_FALSE(result);
  EXPECT_EQ(Open(HKEY_CURRENT_USER, Under(u"none\\deeper")), 2);
}

TEST_F(RegistryKeys, AnOpenWithoutAPathOpensTheKeyItself) {
  UniqueKey again;
  EXPECT_EQ(RegOpenKeyExW(key_.get(), nullptr, 0, KEY_ALL_ACCESS, again.put()), 0);
  EXPECT_EQ(SetData(again.get(), u"v", REG_BINARY, {1}), 0);
  EXPECT_EQ(RegOpenKeyExW(key_.get(), u"", 0, KEY_READ, again.put()), 0);
  EXPECT_EQ(Query(again.get(), u"v"), (Stored{0, REG_BINARY, {1}}));
}

TEST_F(RegistryKeys, NamesCompareWithoutCase) {
  UniqueKey created;
  DWORD disposition = 0;
  EXPECT_EQ(Create(key_.get(), u"Gr\u00fc\u00dfe\\\u0416\u03b1", KEY_READ, created, &disposition), 0);
  EXPECT_EQ(disposition, 1U);
  EXPECT_EQ(Create(key_.get(), u"GR\u00dc\u00dfE\\\u0436\u0391", KEY_READ, created, &disposition), 0);
  EXPECT_EQ(disposition, 2U);
  EXPECT_THAT(SubkeysOf(key_.get()), ElementsAre(u"Gr\u00fc\u00dfe"));
}

TEST_F(RegistryKeys, AreMadeWithAllKeysOnTheWay) {
  UniqueKey created;
  EXPECT_EQ(Create(key_.get(), u"a\\b\\c", KEY_READ, created), 0);
  EXPECT_EQ(Open(key_.get(), u"a\\b"), 0);
  EXPECT_EQ(Open(HKEY_CURRENT_USER, Under(u"A\\B\\C")), 0);
}

TEST_F(RegistryKeys, BackslashesBetweenAndBehindNamesMayBeDoubled) {
  UniqueKey created;
  EXPECT_EQ(Create(key_.get(), u"a\\\\b\\", KEY_READ, created), 0);
  EXPECT_EQ(Open(key_.get(), u"a\\b"), 0);
  EXPECT_EQ(Open(key_.get(), u"a\\\\b\\\\"), 0);
}

TEST_F(RegistryKeys, APathDoesNotBeginWithABackslash) {
  UniqueKey created;
  EXPECT_EQ(Open(key_.get(), u"\\a"), 161);
  EXPECT_EQ(Open(HKEY_CURRENT_USER, u"\\"), 161);
  EXPECT_EQ(Create(key_.get(), u"\\a", KEY_READ, created), 161);
}

TEST_F(RegistryKeys, ANameHasABound) {
  UniqueKey created;
  EXPECT_EQ(Create(key_.get(), std::u16string(255, u'n'), KEY_READ, created), 0);
  EXPECT_EQ(Create(key_.get(), std::u16string(257, u'n'), KEY_READ, created), 87);
  EXPECT_EQ(Open(key_.get(), std::u16string(255, u'n')), 0);
  EXPECT_EQ(Open(key_.get(), std::u16string(257, u'n')), 87);
}

TEST_F(RegistryKeys, AValueThatIsNoHandleIsRefused) {
  UniqueKey created;
  DWORD number = 0;
  char16_t name[10];
  EXPECT_EQ(Open(kNoKey, u"x"), 6);
  EXPECT_EQ(Open(HKEY(), u""), 6);
  EXPECT_EQ(Create(kNoKey, u"x", KEY_READ, created), 6);
  EXPECT_EQ(RegEnumKeyW(kNoKey, 0, name, 10), 6);
  EXPECT_EQ(RegQueryInfoKeyW(kNoKey, nullptr, nullptr, nullptr, &number, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            6);
  EXPECT_EQ(RegQueryValueExW(kNoKey, u"v", nullptr, nullptr, nullptr, nullptr), 6);
  EXPECT_EQ(RegGetValueW(kNoKey, nullptr, u"v", RRF_RT_ANY, nullptr, nullptr, nullptr), 6);
  EXPECT_EQ(RegSetValueExW(kNoKey, u"v", 0, REG_BINARY, nullptr, 0), 6);
  EXPECT_EQ(RegDeleteValueW(kNoKey, u"v"), 6);
  EXPECT_EQ(RegDeleteTreeW(kNoKey, u"x"), 6);
}

TEST_F(RegistryKeys, AKeyIsClosedOnceAndAPredefinedOneAnyTimes) {
  HKEY opened{};
  ASSERT_EQ(RegOpenKeyExW(key_.get(), u"", 0, KEY_READ, &opened), 0);
  EXPECT_EQ(RegCloseKey(opened), 0);
  EXPECT_EQ(RegCloseKey(opened), 6);
  EXPECT_EQ(RegCloseKey(HKEY()), 6);
  EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), 0);
  EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), 0);
  EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), 0);
  EXPECT_EQ(Open(HKEY_CURRENT_USER, kBase), 0);
}

TEST_F(RegistryKeys, TheHivesAreApart) {
  support::SetNumber(support::Hive::Machine, kBase, u"number", 1);
  support::SetNumber(support::Hive::User, kBase, u"number", 2);
  UniqueKey machineKey;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kBase, 0, KEY_READ, machineKey.put()), 0);
  EXPECT_EQ(Query(machineKey.get(), u"number"), (Stored{0, REG_DWORD, {1, 0, 0, 0}}));
  EXPECT_EQ(Query(key_.get(), u"number"), (Stored{0, REG_DWORD, {2, 0, 0, 0}}));
}

// ---- Listing subkeys ----

TEST_F(RegistryKeys, AreListedInTheOrderOfTheirNamesWithoutCase) {
  for (const char16_t* name : {u"beta", u"Alpha", u"_x", u"al", u"Zed", u"\u00e9"}) {
    UniqueKey created;
    ASSERT_EQ(Create(key_.get(), name, KEY_READ, created), 0);
  }
  // The order is that of the capitals: "_" stands between "Z" and "\u00c9". Wine sorts by the small letters, so that
  // it puts "_x" in front.
  std::vector<std::u16string> names = SubkeysOf(key_.get());
  std::erase(names, u"_x");
  EXPECT_THAT(names, ElementsAre(u"al", u"Alpha", u"beta", u"Zed", u"\u00e9"));
}

TEST_F(RegistryKeys, TheListEndsWithNoMoreItems) {
  UniqueKey created;
  ASSERT_EQ(Create(key_.get(), u"one", KEY_READ, created), 0);
  char16_t name[10];
  DWORD length = 10;
  EXPECT_EQ(RegEnumKeyExW(key_.get(), 1, name, &length, nullptr, nullptr, nullptr, nullptr), 259);
  EXPECT_EQ(length, 10U);
  EXPECT_EQ(RegEnumKeyW(key_.get(), 1, name, 10), 259);
  EXPECT_EQ(RegEnumKeyW(key_.get(), 99, name, 0), 259);
}

TEST_F(RegistryKeys, ANameThatDoesNotFitLeavesTheBufferAlone) {
  UniqueKey created;
  ASSERT_EQ(Create(key_.get(), u"Alpha", KEY_READ, created), 0);
  for (const DWORD size : {0U, 1U, 5U}) {
    char16_t name[10] = u"before";
    DWORD length = size;
    EXPECT_EQ(RegEnumKeyExW(key_.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), 234) << size;
    EXPECT_EQ(length, size);
    EXPECT_EQ(std::u16string(name), u"before");
    EXPECT_EQ(RegEnumKeyW(key_.get(), 0, name, size), 234) << size;
    EXPECT_EQ(std::u16string(name), u"before");
  }
}

TEST_F(RegistryKeys, ANameThatJustFitsIsTerminated) {
  UniqueKey created;
  ASSERT_EQ(Create(key_.get(), u"Alpha", KEY_READ, created), 0);
  char16_t name[10] = u"123456789";
  DWORD length = 6;
  EXPECT_EQ(RegEnumKeyExW(key_.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(std::u16string(name), u"Alpha");
  name[5] = u'!';
  EXPECT_EQ(RegEnumKeyW(key_.get(), 0, name, 6), 0);
  EXPECT_EQ(std::u16string(name), u"Alpha");
}

TEST_F(RegistryKeys, TheNumberOfSubkeysCountsThoseDirectlyBelow) {
  UniqueKey created;
  DWORD count = 77;
  const auto query = [&] {
    return RegQueryInfoKeyW(key_.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr);
  };
  EXPECT_EQ(query(), 0);
  EXPECT_EQ(count, 0U);
  ASSERT_EQ(Create(key_.get(), u"a\\b\\c", KEY_READ, created), 0);
  ASSERT_EQ(Create(key_.get(), u"d", KEY_READ, created), 0);
  EXPECT_EQ(query(), 0);
  EXPECT_EQ(count, 2U);
}

// ---- Values ----

TEST_F(RegistryValue, KeepsItsTypeAndItsBytesWhateverTheyAre) {
  std::vector<std::uint8_t> everyByte(256);
  for (std::size_t i = 0; i < everyByte.size(); ++i) everyByte[i] = static_cast<std::uint8_t>(i);
  const Stored kinds[] = {
      {0, REG_NONE, {}},
      {0, REG_NONE, {1}},
      {0, REG_SZ, {}},
      {0, REG_SZ, BytesOf({u"plain \\ \"text\"", 15})},
      {0, REG_SZ, BytesOf({u"two\r\nlines", 11})},
      {0, REG_SZ, BytesOf({u"a\0b", 4})},
      {0, REG_SZ, {'o', 0, 'd'}},
      {0, REG_SZ, BytesOf({u"\xd800 lone \xdc00", 9})},
      {0, REG_SZ, BytesOf({u"\xd83d\xde00 \u00e9", 5})},
      {0, REG_EXPAND_SZ, BytesOf({u"%PATH%", 7})},
      {0, REG_BINARY, everyByte},
      {0, REG_BINARY, {}},
      {0, REG_DWORD, {0xEF, 0xBE, 0xAD, 0xDE}},
      {0, REG_DWORD, {1, 2}},
      {0, REG_DWORD, {}},
      {0, REG_MULTI_SZ, BytesOf({u"one\0two\0", 9})},
      {0, REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
      {0, 0x12345678, {9}},
  };
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    const std::u16string name = u"value" + std::u16string(1, static_cast<char16_t>(u'a' + i));
    ASSERT_EQ(SetData(key_.get(), name.c_str(), kinds[i].type, kinds[i].data), 0) << i;
  }
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    const std::u16string name = u"VALUE" + std::u16string(1, static_cast<char16_t>(u'A' + i));
    EXPECT_EQ(Query(key_.get(), name.c_str()), kinds[i]) << i;
  }
}

TEST_F(RegistryValue, ItsNameMayHoldAnything) {
  const char16_t* const names[] = {
      u" ",        u"a=b", u"\"quoted\"", u"back\\slash\\", u"@",          u"[x]", u"; no comment",
      u"li\r\nne", u"\t",  u"-",          u"\xd800",        u"\xdc80\xdc", u"=",   u"\u00e9\u4e00\xd83d\xde00"};
  for (std::uint8_t i = 0; i < std::size(names); ++i) ASSERT_EQ(SetData(key_.get(), names[i], REG_BINARY, {i}), 0);
  for (std::uint8_t i = 0; i < std::size(names); ++i) {
    EXPECT_EQ(Query(key_.get(), names[i]), (Stored{0, REG_BINARY, {i}})) << unsigned{i};
  }
}

TEST_F(RegistryValue, AnEmptyOrNullNameIsTheDefaultValue) {
  EXPECT_EQ(Query(key_.get(), nullptr).status, 2);
  ASSERT_EQ(SetData(key_.get(), nullptr, REG_BINARY, {1}), 0);
  EXPECT_EQ(Query(key_.get(), u"").data, std::vector<std::uint8_t>{1});
  ASSERT_EQ(SetData(key_.get(), u"", REG_BINARY, {2}), 0);
  EXPECT_EQ(Query(key_.get(), nullptr).data, std::vector<std::uint8_t>{2});
  EXPECT_EQ(RegDeleteValueW(key_.get(), nullptr), 0);
  EXPECT_EQ(Query(key_.get(), u"").status, 2);
}

TEST_F(RegistryValue, ANewValueTakesThePlaceOfTheOld) {
  ASSERT_EQ(SetData(key_.get(), u"v", REG_BINARY, {1, 2, 3}), 0);
  ASSERT_EQ(SetData(key_.get(), u"V", REG_DWORD, {4, 0, 0, 0}), 0);
  EXPECT_EQ(Query(key_.get(), u"v"), (Stored{0, REG_DWORD, {4, 0, 0, 0}}));
  ASSERT_EQ(RegDeleteValueW(key_.get(), u"v"), 0);
  EXPECT_EQ(Query(key_.get(), u"V").status, 2);
  EXPECT_EQ(RegDeleteValueW(key_.get(), u"v"), 2);
}

TEST_F(RegistryValue, TooLongForTheBufferReportsTheTrueLengthAndLeavesTheBufferAlone) {
  ASSERT_EQ(SetData(key_.get(), u"v", REG_BINARY, {1, 2, 3, 4}), 0);
  for (const DWORD offered : {0U, 1U, 3U}) {
    std::uint8_t data[4] = {9, 9, 9, 9};
    DWORD size = offered;
    DWORD type = 77;
    EXPECT_EQ(RegQueryValueExW(key_.get(), u"v", nullptr, &type, data, &size), 234);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(type, REG_BINARY);
    EXPECT_THAT(data, ElementsAre(9, 9, 9, 9));
  }
}

TEST_F(RegistryValue, IsReadIntoABufferOfItsLengthAndNoFurther) {
  ASSERT_EQ(SetData(key_.get(), u"v", REG_BINARY, {1, 2}), 0);
  std::uint8_t data[4] = {9, 9, 9, 9};
  DWORD size = 2;
  EXPECT_EQ(RegQueryValueExW(key_.get(), u"v", nullptr, nullptr, data, &size), 0);
  EXPECT_THAT(data, ElementsAre(1, 2, 9, 9));
}

TEST_F(RegistryValue, EveryOutParameterMayBeNull) {
  ASSERT_EQ(SetData(key_.get(), u"v", REG_BINARY, {1, 2}), 0);
  std::uint8_t data[2];
  EXPECT_EQ(RegQueryValueExW(key_.get(), u"v", nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(RegQueryValueExW(key_.get(), u"none", nullptr, nullptr, nullptr, nullptr), 2);
  EXPECT_EQ(RegQueryValueExW(key_.get(), u"v", nullptr, nullptr, data, nullptr), 87);
}

TEST_F(RegistryValue, OfAMebibyteIsKept) {
  std::vector<std::uint8_t> data(1 << 20);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 31 >> 3);
  ASSERT_EQ(SetData(key_.get(), u"big", REG_BINARY, data), 0);
  EXPECT_EQ(Query(key_.get(), u"big"), (Stored{0, REG_BINARY, data}));
}

TEST_F(RegistryValue, ItsNameHasABound) {
  const std::u16string longest(16383, u'n');
  EXPECT_EQ(SetData(key_.get(), longest.c_str(), REG_BINARY, {1}), 0);
  EXPECT_EQ(Query(key_.get(), longest.c_str()).data, std::vector<std::uint8_t>{1});
  EXPECT_EQ(SetData(key_.get(), (longest + u"n").c_str(), REG_BINARY, {1}), 87);
  EXPECT_EQ(Query(key_.get(), (longest + u"n").c_str()).status, 2);
}

TEST_F(RegistryValue, WithoutItsDataIsRefused) {
  EXPECT_EQ(RegSetValueExW(key_.get(), u"v", 0, REG_BINARY, nullptr, 4), 998);
  EXPECT_EQ(Query(key_.get(), u"v").status, 2);
}

TEST_F(RegistryValue, CallsLeaveTheLastErrorAlone) {
  SetLastError(4711);
  EXPECT_EQ(Query(key_.get(), u"none").status, 2);
  EXPECT_EQ(Open(kNoKey, u"x"), 6);
  EXPECT_EQ(RegCloseKey(kNoKey), 6);
  EXPECT_EQ(GetLastError(), 4711U);
}

// ---- RegGetValueW ----

TEST_F(RegistryGetValue, ReadsBelowASubkeyAndInTheKeyItself) {
  support::SetNumber(support::Hive::User, Under(u"sub"), u"number", 7);
  support::SetNumber(support::Hive::User, kBase, u"number", 8);
  DWORD number = 0;
  DWORD size = sizeof number;
  EXPECT_EQ(RegGetValueW(key_.get(), u"sub", u"number", RRF_RT_ANY, nullptr, &number, &size), 0);
  EXPECT_EQ(number, 7U);
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"number", RRF_RT_ANY, nullptr, &number, &size), 0);
  EXPECT_EQ(number, 8U);
  EXPECT_EQ(RegGetValueW(key_.get(), u"none", u"number", RRF_RT_ANY, nullptr, &number, &size), 2);
}

TEST_F(RegistryGetValue, GivesATextTheTerminatorThatIsMissing) {
  // No NUL stands behind the text, neither counted nor by chance.
  ASSERT_EQ(RegSetValueExW(key_.get(), u"v", 0, REG_SZ, u"abcd", 6), 0);
  char16_t text[8] = u"xxxxxxx";
  DWORD size = sizeof text;
  DWORD type = 0;
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_REG_SZ, &type, text, &size), 0);
  EXPECT_EQ(std::u16string(text), u"abc");
  EXPECT_EQ(type, REG_SZ);
}

TEST_F(RegistryGetValue, RefusesATypeThatIsNotAskedFor) {
  support::SetNumber(support::Hive::User, kBase, u"number", 8);
  ASSERT_EQ(SetData(key_.get(), u"multi", REG_MULTI_SZ, BytesOf({u"a\0", 3})), 0);
  DWORD number = 0;
  DWORD size = sizeof number;
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"number", RRF_RT_REG_SZ, nullptr, &number, &size), 1630);
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"multi", RRF_RT_REG_SZ, nullptr, nullptr, nullptr), 1630);
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"number", 0, nullptr, nullptr, nullptr), 1630);
}

TEST_F(RegistryGetValue, TooLongForTheBufferReportsTheTrueLength) {
  support::SetText(support::Hive::User, kBase, u"v", u"abc");
  char16_t text[8] = u"xxx";
  DWORD size = 6;
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_ANY, nullptr, text, &size), 234);
  EXPECT_EQ(size, 8U);
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_ANY, nullptr, text, &size), 0);
  EXPECT_EQ(std::u16string(text), u"abc");
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_ANY, nullptr, nullptr, &size), 0);
  EXPECT_EQ(size, 8U);
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_ANY, nullptr, text, nullptr), 87);
}

TEST_F(RegistryGetValue, PutsInTheVariablesOfAnExpandableText) {
  support::SetEnvironment("LUMENAR_TEST_VARIABLE", "in");
  ASSERT_EQ(SetData(key_.get(), u"v", REG_EXPAND_SZ, BytesOf({u"<%Lumenar_Test_Variable%> %no% 5%", 34})), 0);
  char16_t text[80] = {};
  DWORD size = sizeof text;
  DWORD type = 0;
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_REG_SZ, &type, text, &size), 0);
  EXPECT_EQ(std::u16string(text), u"<in> %no% 5%");
  EXPECT_EQ(type, REG_SZ);
}

TEST_F(RegistryGetValue, PutsInTheVariablesThatEveryMachineHas) {
  ASSERT_EQ(SetData(key_.get(), u"v", REG_EXPAND_SZ, BytesOf({u"%ProgramData%\\x", 16})), 0);
  char16_t text[80] = {};
  DWORD size = sizeof text;
  EXPECT_EQ(RegGetValueW(key_.get(), nullptr, u"v", RRF_RT_REG_SZ, nullptr, text, &size), 0);
  EXPECT_EQ(std::u16string(text), u"C:\\ProgramData\\x");
}

// ---- Access ----

TEST_F(RegistryAccess, ReadingTakesTheRightToRead) {
  support::SetNumber(support::Hive::User, kBase, u"v", 1);
  UniqueKey writeOnly;
  ASSERT_EQ(RegOpenKeyExW(key_.get(), u"", 0, KEY_WRITE, writeOnly.put()), 0);
  char16_t name[10];
  EXPECT_EQ(Query(writeOnly.get(), u"v").status, 5);
  EXPECT_EQ(RegGetValueW(writeOnly.get(), nullptr, u"v", RRF_RT_ANY, nullptr, nullptr, nullptr), 5);
  EXPECT_EQ(RegEnumKeyW(writeOnly.get(), 0, name, 10), 5);
  EXPECT_EQ(SetData(writeOnly.get(), u"w", REG_BINARY, {1}), 0);
}

TEST_F(RegistryAccess, WritingTakesTheRightToWrite) {
  support::SetNumber(support::Hive::User, kBase, u"v", 1);
  UniqueKey readOnly;
  ASSERT_EQ(RegOpenKeyExW(key_.get(), u"", 0, KEY_READ, readOnly.put()), 0);
  EXPECT_EQ(SetData(readOnly.get(), u"v", REG_BINARY, {1}), 5);
  EXPECT_EQ(RegDeleteValueW(readOnly.get(), u"v"), 5);
  EXPECT_EQ(Query(readOnly.get(), u"v"), (Stored{0, REG_DWORD, {1, 0, 0, 0}}));
}

TEST_F(RegistryAccess, KeysBelowAreMadeAndDeletedByTheirOwnRightsNotTheHandles) {
  UniqueKey readOnly;
  UniqueKey created;
  ASSERT_EQ(RegOpenKeyExW(key_.get(), u"", 0, KEY_READ, readOnly.put()), 0);
  EXPECT_EQ(Create(readOnly.get(), u"sub\\deep", KEY_ALL_ACCESS, created), 0);
  EXPECT_EQ(SetData(created.get(), u"v", REG_BINARY, {1}), 0);
  EXPECT_EQ(RegDeleteTreeW(readOnly.get(), u"sub"), 0);
  EXPECT_EQ(Open(key_.get(), u"sub"), 2);
}

// ---- Deleting ----

TEST_F(RegistryKeys, ATreeIsDeletedWithAllBelowIt) {
  support::SetNumber(support::Hive::User, Under(u"tree\\a\\b"), u"v", 1);
  support::SetNumber(support::Hive::User, Under(u"tree2"), u"v", 1);
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, Under(u"Tree").c_str()), 0);
  EXPECT_EQ(Open(key_.get(), u"tree"), 2);
  EXPECT_EQ(Open(key_.get(), u"tree\\a\\b"), 2);
  EXPECT_EQ(Open(key_.get(), u"tree2"), 0);
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, Under(u"Tree").c_str()), 2);
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, Under(u"none\\deeper").c_str()), 2);
}

TEST_F(RegistryKeys, ATreeWithoutANameIsEmptiedAndStays) {
  support::SetNumber(support::Hive::User, Under(u"tree\\a"), u"v", 1);
  support::SetNumber(support::Hive::User, Under(u"tree"), u"v", 1);
  UniqueKey tree;
  ASSERT_EQ(RegOpenKeyExW(key_.get(), u"tree", 0, KEY_ALL_ACCESS, tree.put()), 0);
  EXPECT_EQ(RegDeleteTreeW(tree.get(), nullptr), 0);
  EXPECT_EQ(Open(key_.get(), u"tree"), 0);
  EXPECT_EQ(Open(key_.get(), u"tree\\a"), 2);
  EXPECT_EQ(Query(tree.get(), u"v").status, 2);
}

TEST_F(RegistryDeletedKey, EveryCallSaysSo) {
  UniqueKey gone;
  UniqueKey created;
  DWORD count = 0;
  char16_t name[10];
  ASSERT_EQ(Create(key_.get(), u"gone\\below", KEY_READ, created), 0);
  ASSERT_EQ(Create(key_.get(), u"gone", KEY_ALL_ACCESS, gone), 0);
  ASSERT_EQ(RegDeleteTreeW(key_.get(), u"gone"), 0);
  EXPECT_EQ(Query(gone.get(), u"v").status, 1018);
  EXPECT_EQ(RegGetValueW(gone.get(), nullptr, u"v", RRF_RT_ANY, nullptr, nullptr, nullptr), 1018);
  EXPECT_EQ(RegGetValueW(gone.get(), u"x", u"v", RRF_RT_ANY, nullptr, nullptr, nullptr), 1018);
  EXPECT_EQ(SetData(gone.get(), u"v", REG_BINARY, {1}), 1018);
  EXPECT_EQ(RegDeleteValueW(gone.get(), u"v"), 1018);
  EXPECT_EQ(RegEnumKeyW(gone.get(), 0, name, 10), 1018);
  EXPECT_EQ(RegQueryInfoKeyW(gone.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            1018);
  EXPECT_EQ(Open(gone.get(), u""), 1018);
  EXPECT_EQ(Open(gone.get(), u"below"), 1018);
  EXPECT_EQ(Create(gone.get(), u"new", KEY_READ, created), 1018);
  EXPECT_EQ(RegDeleteTreeW(gone.get(), u"below"), 1018);
  EXPECT_EQ(Query(created.get(), u"v").status, 6);
  EXPECT_EQ(RegCloseKey(gone.release()), 0);
}

TEST_F(RegistryDeletedKey, StaysDeletedWhenANewKeyTakesItsName) {
  UniqueKey gone;
  UniqueKey created;
  ASSERT_EQ(Create(key_.get(), u"gone", KEY_ALL_ACCESS, gone), 0);
  ASSERT_EQ(RegDeleteTreeW(key_.get(), u"gone"), 0);
  EXPECT_EQ(Query(gone.get(), u"v").status, 1018);
  ASSERT_EQ(Create(key_.get(), u"gone", KEY_ALL_ACCESS, created), 0);
  EXPECT_EQ(SetData(gone.get(), u"v", REG_BINARY, {1}), 1018);
  EXPECT_EQ(SetData(created.get(), u"v", REG_BINARY, {1}), 0);
}

// ---- The 32-bit view ----

class RegistryView : public testing::Test {
 protected:
  support::Machine machine_;
  UniqueKey created_;
};

TEST_F(RegistryView, IsASubtreeOfItsOwnOfTheMachinesHive) {
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, Under(u"only64"), KEY_READ | KEY_WOW64_64KEY, created_), 0);
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, Under(u"only32"), KEY_READ | KEY_WOW64_32KEY, created_), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, Under(u"only64"), KEY_READ | KEY_WOW64_32KEY), 2);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, Under(u"only32"), KEY_READ | KEY_WOW64_32KEY), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, Under(u"only64")), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, Under(u"only32")), 2);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Wow6432Node\\LumenarTest");
}

TEST_F(RegistryView, IsReachedByItsNameToo) {
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, Under(u"only32"), KEY_READ | KEY_WOW64_32KEY, created_), 0);
  const std::u16string byName = u"SOFTWARE\\wow6432node\\LumenarTest\\only32";
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, byName), 0);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, byName, KEY_READ | KEY_WOW64_32KEY), 0);
  UniqueKey software;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software", 0, KEY_READ | KEY_WOW64_32KEY, software.put()), 0);
  EXPECT_EQ(Open(software.get(), u"LumenarTest\\only32"), 0);
  EXPECT_EQ(Open(software.get(), u"LumenarTest\\only32", KEY_READ | KEY_WOW64_32KEY), 0);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Wow6432Node\\LumenarTest");
}

TEST_F(RegistryView, IsAMatterOfPathsFromTheRootAlone) {
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, Under(u"only64"), KEY_READ | KEY_WOW64_64KEY, created_), 0);
  UniqueKey software;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software", 0, KEY_READ, software.put()), 0);
  EXPECT_EQ(Open(software.get(), u"LumenarTest\\only64", KEY_READ | KEY_WOW64_32KEY), 0);
}

// ---- Several processes ----

// For each number that the parent says, adds that many values to the test's key, and tells the parent.
CHILD_BODY(AddsRegistryValues) {
  support::Say("ready");
  for (std::string line = support::Hear(); !line.empty(); line = support::Hear()) {
    UniqueKey key;
    if (Create(HKEY_CURRENT_USER, kBase, KEY_WRITE, key) != 0) return 1;
    for (int i = 0; i < std::stoi(line); ++i) {
      const std::u16string name = support::Wide(arguments[0] + "-" + std::to_string(i));
      if (SetData(key.get(), name.c_str(), REG_BINARY, {static_cast<std::uint8_t>(i)}) != 0) return 2;
    }
    support::Say("added");
  }
  return 0;
}

TEST_F(Registry, EightProcessesThatWriteAThousandValuesEachAtOnceLoseNone) {
  constexpr int kProcesses = 8;
  constexpr int kRounds = 10;
  constexpr int kValuesInRound = 100;
  std::vector<support::Process> writers;
  for (int i = 0; i < kProcesses; ++i) {
    writers.push_back(support::StartChild("AddsRegistryValues", {std::to_string(i)}));
    ASSERT_EQ(writers.back().Hear(), "ready");
  }
  for (int round = 0; round < kRounds; ++round) {
    for (support::Process& writer : writers) writer.Say(std::to_string(kValuesInRound));
    for (support::Process& writer : writers) ASSERT_EQ(writer.Hear(), "added");
    UniqueKey key;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kBase, 0, KEY_READ, key.put()), 0);
    for (int i = 0; i < kProcesses * kValuesInRound; ++i) {
      const int value = i % kValuesInRound;
      const std::u16string name = support::Wide(std::to_string(i / kValuesInRound) + "-" + std::to_string(value));
      ASSERT_EQ(Query(key.get(), name.c_str()).data, std::vector<std::uint8_t>{static_cast<std::uint8_t>(value)});
    }
    ASSERT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, kBase), 0);
  }
  for (support::Process& writer : writers) EXPECT_EQ(writer.Wait(), 0);
}

CHILD_BODY(ReplacesARegistryValue) {
  UniqueKey key;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kBase, 0, KEY_WRITE, key.put()) != 0) return 1;
  for (int i = 0; i < 300; ++i) {
    const std::uint8_t longer = i % 2 == 0 ? 0 : 1;
    if (SetData(key.get(), u"v", REG_BINARY, std::vector<std::uint8_t>(5000U + longer, longer)) != 0) return 2;
  }
  support::Say("done");
  return 0;
}

TEST_F(Registry, AReaderSeesTheOldValueOrTheNewWhileAnotherProcessWrites) {
  ASSERT_EQ(SetData(key_.get(), u"v", REG_BINARY, std::vector<std::uint8_t>(5000, 0)), 0);
  support::Process writer = support::StartChild("ReplacesARegistryValue");
  std::uint8_t data[6000];
  for (int reads = 0; reads < 300; ++reads) {
    DWORD size = sizeof data;
    ASSERT_EQ(RegQueryValueExW(key_.get(), u"v", nullptr, nullptr, data, &size), 0);
    ASSERT_TRUE(size == 5000 || size == 5001);
    for (DWORD i = 0; i < size; ++i) ASSERT_EQ(data[i], size - 5000);
  }
  EXPECT_EQ(writer.Hear(), "done");
  EXPECT_EQ(writer.Wait(), 0);
  EXPECT_EQ(Query(key_.get(), u"v").data.size(), 5001U);
}

TEST_F(Registry, WhatAnotherProcessWritesIsSeenAtTheNextRead) {
  EXPECT_EQ(Query(key_.get(), u"x-0").status, 2);
  support::Process writer = support::StartChild("AddsRegistryValues", {"x"});
  ASSERT_EQ(writer.Hear(), "ready");
  writer.Say("1");
  ASSERT_EQ(writer.Hear(), "added");
  EXPECT_EQ(Query(key_.get(), u"x-0").status, 0);
  EXPECT_EQ(writer.Wait(), 0);
}

}  // namespace
