#include "settings/registryAccess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "platform/raii.h"
#include "tests/support/machine.h"
#include "tests/support/targets.h"
#include "tests/unit/registryAccessSupport.h"

namespace unit {
namespace {

using platform::DWORD;
using platform::NativeKeyHandle;
using platform::UniqueNativeKey;
using settings::kReadAccess;
using support::Hive;
using Bytes = std::vector<std::uint8_t>;

constexpr DWORD kCanary = 0xCACACACA;

Bytes Count(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  return bytes;
}

Bytes BytesOf(std::u16string_view text) {
  Bytes bytes(text.size() * sizeof(char16_t));
  std::memcpy(bytes.data(), text.data(), bytes.size());
  return bytes;
}

class RegistryAccess : public testing::Test {
 protected:
  UniqueNativeKey Open() {
    support::CreateKey(Hive::Machine, kPath);
    UniqueNativeKey key;
    EXPECT_EQ(settings::OpenKeyAbsolute(kNativePath, kReadAccess, key.put()), platform::STATUS_SUCCESS);
    return key;
  }
  void Store(const Bytes& bytes, DWORD type = platform::REG_BINARY) {
    support::SetBytes(Hive::Machine, kPath, u"value", type, bytes);
  }

  support::Machine machine;
};

// ---- Opening. ----

TEST_F(RegistryAccess, ANullOrEmptyPathOrANullOutputIsAnInvalidParameter) {
  NativeKeyHandle key;
  DWORD size = 0;
  EXPECT_EQ(settings::OpenKeyAbsolute(nullptr, kReadAccess, &key), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::OpenKeyAbsolute(u"", kReadAccess, &key), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::OpenKeyAbsolute(kNativePath, kReadAccess, nullptr), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::OpenKeyCurrentUser(nullptr, kReadAccess, &key), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::OpenKeyCurrentUser(u"", kReadAccess, &key), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::OpenKeyCurrentUser(kPath, kReadAccess, nullptr), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::QueryCurrentUserValue(nullptr, u"value", nullptr, nullptr, &size, true),
            platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::QueryCurrentUserValue(u"", u"value", nullptr, nullptr, &size, true),
            platform::STATUS_INVALID_PARAMETER);
  EXPECT_FALSE(key);
}

TEST_F(RegistryAccess, AKeyOpensWithoutRegardToCase) {
  support::CreateKey(Hive::Machine, kPath);
  support::CreateKey(Hive::User, kPath);
  UniqueNativeKey key;
  EXPECT_EQ(settings::OpenKeyAbsolute(u"\\REGISTRY\\machine\\SOFTWARE\\lumenartest", kReadAccess, key.put()), 0);
  EXPECT_TRUE(key);
  EXPECT_EQ(settings::OpenKeyCurrentUser(u"SOFTWARE\\lumenarTEST", kReadAccess, key.put()), 0);
  EXPECT_TRUE(key);
}

TEST_F(RegistryAccess, AMissingKeyHasTheNativeStatus) {
  NativeKeyHandle key;
  EXPECT_EQ(settings::OpenKeyAbsolute(kNativePath, kReadAccess, &key), platform::STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(settings::OpenKeyCurrentUser(kPath, kReadAccess, &key), platform::STATUS_OBJECT_NAME_NOT_FOUND);
}

TEST_F(RegistryAccess, TheHivesOfUserAndMachineAreApart) {
  support::SetNumber(Hive::User, kPath, u"value", 1);
  support::SetNumber(Hive::Machine, kPath, u"value", 2);
  UniqueNativeKey user;
  ASSERT_EQ(settings::OpenKeyCurrentUser(kPath, kReadAccess, user.put()), 0);
  const UniqueNativeKey ofMachine = Open();
  DWORD number = 0;
  EXPECT_TRUE(settings::ReadNumber(user.get(), u"value", &number));
  EXPECT_EQ(number, 1u);
  EXPECT_TRUE(settings::ReadNumber(ofMachine.get(), u"value", &number));
  EXPECT_EQ(number, 2u);
}

// ---- QueryValue. ----

TEST_F(RegistryAccess, AQueryWithoutKeyOrSizeIsAnInvalidParameter) {
  const UniqueNativeKey key = Open();
  DWORD size = 4;
  EXPECT_EQ(settings::QueryValue({}, u"value", nullptr, nullptr, &size), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(settings::QueryValue(key.get(), u"value", nullptr, nullptr, nullptr), platform::STATUS_INVALID_PARAMETER);
  EXPECT_EQ(size, 4u);
}

TEST_F(RegistryAccess, ASizeQueryOfFourBytesSucceeds) {
  Store(Count(4));
  DWORD size = 0;
  DWORD type = 99;
  EXPECT_EQ(settings::QueryValue(Open().get(), u"value", &type, nullptr, &size), platform::STATUS_SUCCESS);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, platform::REG_BINARY);
}

TEST_F(RegistryAccess, ASizeQueryOfMoreOverflowsAndTellsTheTrueLength) {
  for (const std::size_t length : {5u, 7u, 8u, 1000u}) {
    Store(Count(length));
    DWORD size = 0;
    DWORD type = 99;
    EXPECT_EQ(settings::QueryValue(Open().get(), u"value", &type, nullptr, &size), platform::STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(size, length);
    EXPECT_EQ(type, platform::REG_BINARY);
  }
}

TEST_F(RegistryAccess, AWordIsLeftAloneByALongerValueWhoseLengthIsTold) {
  for (const std::size_t length : {5u, 6u, 7u, 8u, 64u}) {
    Store(Count(length));
    std::array<DWORD, 3> word = {kCanary, kCanary, kCanary};
    DWORD size = 4;
    DWORD type = 99;
    EXPECT_EQ(settings::QueryValue(Open().get(), u"value", &type, &word[1], &size), platform::STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(size, length);
    EXPECT_EQ(type, platform::REG_BINARY);
    EXPECT_THAT(word, testing::Each(kCanary)) << length;
  }
}

TEST_F(RegistryAccess, AShorterValueFillsItsOwnLengthAlone) {
  for (const std::size_t length : {1u, 2u, 3u, 4u}) {
    Store(Count(length));
    std::array<std::uint8_t, 8> room{};
    room.fill(0xCA);
    DWORD size = 4;
    EXPECT_EQ(settings::QueryValue(Open().get(), u"value", nullptr, room.data(), &size), platform::STATUS_SUCCESS);
    EXPECT_EQ(size, length);
    for (std::size_t i = 0; i < room.size(); ++i) EXPECT_EQ(room[i], i < length ? i + 1 : 0xCA) << length;
  }
}

TEST_F(RegistryAccess, AnEmptyValueIsReadAsNoBytes) {
  Store({});
  DWORD word = kCanary;
  DWORD size = 4;
  EXPECT_EQ(settings::QueryValue(Open().get(), u"value", nullptr, &word, &size), platform::STATUS_SUCCESS);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(word, kCanary);
}

TEST_F(RegistryAccess, AMissingValueTouchesNoOutput) {
  DWORD word = kCanary;
  DWORD size = 4;
  DWORD type = 99;
  EXPECT_EQ(settings::QueryValue(Open().get(), u"value", &type, &word, &size), platform::STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, 99u);
  EXPECT_EQ(word, kCanary);
}

TEST_F(RegistryAccess, AHandleThatIsNoKeyTouchesNoOutput) {
  DWORD size = 4;
  DWORD type = 99;
  EXPECT_NE(settings::QueryValue(NativeKeyHandle(0x7FFFFFF0), u"value", &type, nullptr, &size), 0);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, 99u);
}

// With the room for the header it is more than any call can be given.
TEST_F(RegistryAccess, AQueryOfTheLargestSizeHasNoResourcesAndTouchesNoOutput) {
  Store(Count(4));
  DWORD word = kCanary;
  DWORD size = 0xFFFFFFFF;
  DWORD type = 99;
  EXPECT_EQ(settings::QueryValue(Open().get(), u"value", &type, &word, &size), platform::STATUS_INSUFFICIENT_RESOURCES);
  EXPECT_EQ(size, 0xFFFFFFFFu);
  EXPECT_EQ(type, 99u);
  EXPECT_EQ(word, kCanary);
}

// The limit of the client's install path: 260 bytes, in a buffer that holds as many units.
TEST_F(RegistryAccess, ATextOfMoreThan260BytesDoesNotFitThem) {
  for (const std::size_t length : {258u, 259u, 260u, 261u, 262u, 263u, 264u}) {
    Store(Count(length), platform::REG_SZ);
    std::array<std::uint8_t, 600> room{};
    room.fill(0xCA);
    DWORD size = 260;
    const auto status = settings::QueryValue(Open().get(), u"value", nullptr, room.data(), &size);
    EXPECT_EQ(status, length <= 260 ? platform::STATUS_SUCCESS : platform::STATUS_BUFFER_OVERFLOW) << length;
    EXPECT_EQ(size, length);
    const std::size_t written = length <= 260 ? length : 0;
    for (std::size_t i = 0; i < room.size(); ++i) {
      ASSERT_EQ(room[i], i < written ? static_cast<std::uint8_t>(i + 1) : 0xCA) << length << " at " << i;
    }
  }
}

TEST_F(RegistryAccess, TheDefaultValueHasAnEmptyName) {
  support::SetText(Hive::Machine, kPath, u"", u"default");
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, u"default");
}

TEST_F(RegistryAccess, AValueNameComparesWithoutCase) {
  Store(Count(4));
  DWORD number = 0;
  EXPECT_TRUE(settings::ReadNumber(Open().get(), u"VALUE", &number));
}

// ---- ReadNumber. ----

TEST_F(RegistryAccess, ANumberIsTakenFromFourBytesOfAnyType) {
  for (const DWORD type : {platform::REG_NONE, platform::REG_SZ, platform::REG_BINARY, platform::REG_DWORD}) {
    Store({1, 2, 3, 4}, type);
    DWORD number = 0;
    EXPECT_TRUE(settings::ReadNumber(Open().get(), u"value", &number));
    EXPECT_EQ(number, 0x04030201u);
  }
}

TEST_F(RegistryAccess, ANumberOfFewerBytesFillsTheLowOnes) {
  Store({1, 2});
  DWORD number = kCanary;
  EXPECT_TRUE(settings::ReadNumber(Open().get(), u"value", &number));
  EXPECT_EQ(number, 0x0201u);
}

TEST_F(RegistryAccess, ANumberOfMoreBytesIsUnreadable) {
  for (const std::size_t length : {5u, 6u, 7u, 8u}) {
    Store(Count(length));
    std::array<DWORD, 2> number = {kCanary, kCanary};
    EXPECT_FALSE(settings::ReadNumber(Open().get(), u"value", number.data())) << length;
    EXPECT_THAT(number, testing::ElementsAre(0u, kCanary)) << length;
  }
}

// ---- QueryCurrentUserValue. ----

TEST_F(RegistryAccess, AValueOfTheUserIsReadInOneStep) {
  support::SetNumber(Hive::User, kPath, u"value", 7);
  DWORD number = 0;
  DWORD size = 4;
  DWORD type = 99;
  EXPECT_EQ(settings::QueryCurrentUserValue(kPath, u"value", &type, &number, &size, false), 0);
  EXPECT_EQ(number, 7u);
  EXPECT_EQ(type, platform::REG_DWORD);
}

TEST_F(RegistryAccess, AMissingKeyOfTheUserTouchesNoOutput) {
  DWORD number = kCanary;
  DWORD size = 4;
  EXPECT_EQ(settings::QueryCurrentUserValue(kPath, u"value", nullptr, &number, &size, true),
            platform::STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(number, kCanary);
  EXPECT_EQ(size, 4u);
}

TEST_F(RegistryAccess, AValueOfTheUsersThirtyTwoBitViewLiesInASubtreeOfItsOwn) {
  support::SetNumber(Hive::User, u"Software\\Wow6432Node\\LumenarTest", u"value", 32);
  DWORD number = 0;
  DWORD size = 4;
  const bool found = settings::QueryCurrentUserValue(kPath, u"value", nullptr, &number, &size, true) == 0;
  EXPECT_EQ(found, support::kUserHas32BitView);
  EXPECT_EQ(number, found ? 32u : 0u);
  EXPECT_NE(settings::QueryCurrentUserValue(kPath, u"value", nullptr, &number, &size, false), 0);
  support::DeleteKey(Hive::User, u"Software\\Wow6432Node\\LumenarTest");
}

// ---- ReadStringValue. ----

TEST_F(RegistryAccess, ATextIsReadUpToItsNul) {
  support::SetText(Hive::Machine, kPath, u"value", u"some text");
  std::u16string text = u"old";
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, u"some text");
}

TEST_F(RegistryAccess, ATextWithoutATerminatorIsReadWhole) {
  Store(BytesOf(u"unterminated"), platform::REG_SZ);
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, u"unterminated");
}

TEST_F(RegistryAccess, AMultiStringYieldsItsFirstElement) {
  using namespace std::string_literals;
  Store(BytesOf(u"first\0second\0\0"s), platform::REG_MULTI_SZ);
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_MULTI_SZ, &text), 0);
  EXPECT_EQ(text, u"first");
}

TEST_F(RegistryAccess, ATextOfAnyTypeIsTakenByItsBytes) {
  for (const DWORD type : {platform::REG_NONE, platform::REG_BINARY, platform::REG_DWORD, platform::REG_EXPAND_SZ}) {
    Store(BytesOf(u"%PATH%"), type);
    std::u16string text;
    EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
    EXPECT_EQ(text, u"%PATH%");
  }
}

TEST_F(RegistryAccess, AnOddLastByteIsTheLowHalfOfAUnit) {
  Store({0x41, 0x00, 0x42}, platform::REG_SZ);
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, u"AB");
}

TEST_F(RegistryAccess, ASingleByteIsAText) {
  Store({0x41}, platform::REG_SZ);
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, u"A");
}

TEST_F(RegistryAccess, ATextThatBeginsWithANulIsEmpty) {
  support::SetText(Hive::Machine, kPath, u"value", u"");
  std::u16string text = u"old";
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, u"");
}

TEST_F(RegistryAccess, ALoneSurrogateIsReadAsItIs) {
  const std::u16string lone = u"a" + std::u16string(1, char16_t{0xDC00}) + u"b";
  Store(BytesOf(lone), platform::REG_SZ);
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  EXPECT_EQ(text, lone);
}

TEST_F(RegistryAccess, AMissingOrEmptyTextHasNoResourcesAndLeavesTheOutputAlone) {
  std::u16string text = u"old";
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"missing", platform::REG_SZ, &text),
            platform::STATUS_INSUFFICIENT_RESOURCES);
  Store({}, platform::REG_SZ);
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text),
            platform::STATUS_INSUFFICIENT_RESOURCES);
  EXPECT_EQ(text, u"old");
}

TEST_F(RegistryAccess, TheLongestTextIsReadAndOneByteMoreIsNot) {
  Bytes bytes(0xFFFFF, 0x61);
  Store(bytes, platform::REG_SZ);
  std::u16string text;
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text), 0);
  ASSERT_EQ(text.size(), 0x80000u);
  EXPECT_EQ(text, std::u16string(0x7FFFF, u'\u6161') + u'a');

  bytes.push_back(0x61);
  Store(bytes, platform::REG_SZ);
  text = u"old";
  EXPECT_EQ(settings::ReadStringValue(Open().get(), u"value", platform::REG_SZ, &text),
            platform::STATUS_INSUFFICIENT_RESOURCES);
  EXPECT_EQ(text, u"old");
}

}  // namespace
}  // namespace unit
