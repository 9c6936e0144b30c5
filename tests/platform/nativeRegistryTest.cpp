// The registry's native calls, looked up the way the program looks them up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/module.h"
#include "platform/raii.h"
#include "platform/registry.h"
#include "tests/platform/registrySupport.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;
using registryTests::kBase;
using support::Hive;

constexpr DWORD kHeader = sizeof(KEY_VALUE_PARTIAL_INFORMATION_HEADER);

template <class Function>
Function Native(const char* name) {
  HMODULE module;
  EXPECT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &module));
  const auto function = reinterpret_cast<Function>(GetProcAddress(module, name));
  EXPECT_TRUE(function != nullptr) << name;
  return function;
}

class NativeRegistry : public testing::Test {
 protected:
  UNICODE_STRING Text(const char16_t* text) const {
    UNICODE_STRING counted;
    initialise_(&counted, text);
    return counted;
  }

  NTSTATUS Open(NativeKeyHandle root, const char16_t* path, NativeKeyHandle* key, REGSAM access = KEY_READ) const {
    const UNICODE_STRING name = Text(path);
    const OBJECT_ATTRIBUTES attributes{sizeof attributes, root, &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr};
    return open_(key, access, &attributes);
  }

  NTSTATUS StatusOfOpen(NativeKeyHandle root, const char16_t* path) const {
    UniqueNativeKey key;
    return Open(root, path, key.put());
  }

  // The caller's hive, for one test.
  NativeKeyHandle UserHive() {
    EXPECT_EQ(openUser_(KEY_READ, user_.put()), STATUS_SUCCESS);
    return user_.get();
  }

  NTSTATUS Query(NativeKeyHandle key, const char16_t* name, void* information, DWORD length, DWORD* resultLength) {
    const UNICODE_STRING counted = Text(name);
    return query_(key, &counted, KeyValuePartialInformation, information, length, resultLength);
  }

  support::Machine machine_;
  RtlInitUnicodeStringFunction initialise_ = Native<RtlInitUnicodeStringFunction>("RtlInitUnicodeString");
  NtOpenKeyFunction open_ = Native<NtOpenKeyFunction>("NtOpenKey");
  NtQueryValueKeyFunction query_ = Native<NtQueryValueKeyFunction>("NtQueryValueKey");
  RtlOpenCurrentUserFunction openUser_ = Native<RtlOpenCurrentUserFunction>("RtlOpenCurrentUser");
  UniqueNativeKey user_;
};

TEST_F(NativeRegistry, ACountedTextHasItsLengthInBytesAndRoomForTheNul) {
  const char16_t* const text = u"abc";
  const UNICODE_STRING counted = Text(text);
  EXPECT_EQ(counted.Length, 6);
  EXPECT_EQ(counted.MaximumLength, 8);
  EXPECT_EQ(counted.Buffer, text);
}

TEST_F(NativeRegistry, ACountedTextOfNothingIsEmpty) {
  const UNICODE_STRING counted = Text(nullptr);
  EXPECT_EQ(counted.Length, 0);
  EXPECT_EQ(counted.MaximumLength, 0);
  EXPECT_EQ(counted.Buffer, nullptr);
}

TEST_F(NativeRegistry, ATextTooLongToBeCountedIsCut) {
  for (const std::size_t length : {32766U, 32767U, 40000U}) {
    const UNICODE_STRING counted = Text(std::u16string(length, u'x').c_str());
    EXPECT_EQ(counted.Length, 65532);
    EXPECT_EQ(counted.MaximumLength, 65534);
  }
}

TEST_F(NativeRegistry, AnAbsolutePathLeadsIntoTheMachinesHive) {
  support::SetNumber(Hive::Machine, kBase, u"v", 1);
  EXPECT_EQ(StatusOfOpen({}, u"\\Registry\\Machine\\Software\\LumenarTest"), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen({}, u"\\REGISTRY\\machine\\SOFTWARE\\lumenartest\\"), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen({}, u"\\Registry\\Machine"), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen({}, u"\\Registry\\Machine\\Software\\LumenarTest\\none"), STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(StatusOfOpen({}, u"\\Registry\\None"), STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(StatusOfOpen({}, u"\\RegistryMachine"), STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(StatusOfOpen({}, u"\\Registry\\MachineX"), STATUS_OBJECT_NAME_NOT_FOUND);
}

TEST_F(NativeRegistry, APathWithoutARootBeginsWithABackslash) {
  EXPECT_EQ(StatusOfOpen({}, u"Software"), STATUS_OBJECT_PATH_SYNTAX_BAD);
  EXPECT_EQ(StatusOfOpen({}, u""), STATUS_OBJECT_PATH_SYNTAX_BAD);
}

TEST_F(NativeRegistry, ARelativePathLeadsBelowItsRoot) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  const NativeKeyHandle user = UserHive();
  EXPECT_EQ(StatusOfOpen(user, u"software\\lumenartest"), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen(user, u"Software\\\\LumenarTest\\"), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen(user, u""), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen(user, u"\\Software\\LumenarTest"), STATUS_OBJECT_PATH_SYNTAX_BAD);
  EXPECT_EQ(StatusOfOpen(user, std::u16string(257, u'n').c_str()), STATUS_INVALID_PARAMETER);
  UniqueNativeKey software;
  ASSERT_EQ(Open(user, u"Software", software.put()), STATUS_SUCCESS);
  EXPECT_EQ(StatusOfOpen(software.get(), u"LumenarTest"), STATUS_SUCCESS);
}

TEST_F(NativeRegistry, AnOpenThatFailsGivesNoHandle) {
  NativeKeyHandle key{0x1234};
  EXPECT_EQ(Open(UserHive(), u"Software\\LumenarTest\\none", &key), STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_FALSE(key);
}

TEST_F(NativeRegistry, ARootThatIsNoHandleIsRefused) {
  EXPECT_EQ(StatusOfOpen(NativeKeyHandle(0x7770), u"Software"), STATUS_INVALID_HANDLE);
}

TEST_F(NativeRegistry, AttributesOfAnotherSizeAreRefused) {
  const UNICODE_STRING name = Text(u"Software");
  const OBJECT_ATTRIBUTES attributes{40, UserHive(), &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr};
  UniqueNativeKey key;
  EXPECT_EQ(open_(key.put(), KEY_READ, &attributes), STATUS_INVALID_PARAMETER);
}

// Opens the test's key of the user's hive.
class NativeValue : public NativeRegistry {
 protected:
  NativeValue() {
    support::CreateKey(Hive::User, kBase);
    EXPECT_EQ(Open(UserHive(), kBase, key_.put()), STATUS_SUCCESS);
  }

  UniqueNativeKey key_;
};

TEST_F(NativeValue, IsReadWithItsHeader) {
  support::SetBytes(Hive::User, kBase, u"v", REG_BINARY, {1, 2, 3, 4, 5, 6});
  for (const DWORD length : {kHeader + 6, kHeader + 7, kHeader + 40}) {
    std::vector<std::uint8_t> buffer(length, 0xEE);
    DWORD needed = 0;
    ASSERT_EQ(Query(key_.get(), u"V", buffer.data(), length, &needed), STATUS_SUCCESS) << length;
    EXPECT_EQ(needed, kHeader + 6);
    std::vector<std::uint8_t> expected = {0, 0, 0, 0, 3, 0, 0, 0, 6, 0, 0, 0, 1, 2, 3, 4, 5, 6};
    expected.resize(length, 0xEE);
    EXPECT_EQ(buffer, expected);
  }
}

TEST_F(NativeValue, TooLongForTheBufferGivesTheHeaderAndTheTrueLength) {
  support::SetBytes(Hive::User, kBase, u"v", REG_BINARY, {1, 2, 3, 4, 5, 6});
  for (DWORD length = kHeader; length < kHeader + 6; ++length) {
    std::vector<std::uint8_t> buffer(kHeader + 6, 0xEE);
    DWORD needed = 0;
    ASSERT_EQ(Query(key_.get(), u"v", buffer.data(), length, &needed), STATUS_BUFFER_OVERFLOW) << length;
    EXPECT_EQ(needed, kHeader + 6);
    KEY_VALUE_PARTIAL_INFORMATION_HEADER header;
    std::memcpy(&header, buffer.data(), sizeof header);
    EXPECT_EQ(header.TitleIndex, 0U);
    EXPECT_EQ(header.Type, REG_BINARY);
    EXPECT_EQ(header.DataLength, 6U);
    for (DWORD i = length; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], 0xEE) << "wrote behind the buffer";
  }
}

TEST_F(NativeValue, ABufferTooSmallForTheHeaderStillLearnsTheLength) {
  support::SetBytes(Hive::User, kBase, u"v", REG_BINARY, {1, 2, 3, 4, 5, 6});
  for (DWORD length = 0; length < kHeader; ++length) {
    std::vector<std::uint8_t> buffer(kHeader, 0xEE);
    DWORD needed = 0;
    ASSERT_EQ(Query(key_.get(), u"v", buffer.data(), length, &needed), STATUS_BUFFER_TOO_SMALL) << length;
    EXPECT_EQ(needed, kHeader + 6);
    for (DWORD i = length; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], 0xEE) << "wrote behind the buffer";
  }
}

TEST_F(NativeValue, WithoutDataFitsTheHeaderAlone) {
  support::SetBytes(Hive::User, kBase, u"v", REG_SZ, {});
  std::uint8_t buffer[kHeader] = {};
  DWORD needed = 0;
  EXPECT_EQ(Query(key_.get(), u"v", buffer, kHeader, &needed), STATUS_SUCCESS);
  EXPECT_EQ(needed, kHeader);
  EXPECT_EQ(Query(key_.get(), u"v", buffer, kHeader - 1, &needed), STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(needed, kHeader);
}

TEST_F(NativeValue, ThatIsMissingLeavesTheOutParametersAlone) {
  std::uint8_t buffer[64] = {9};
  DWORD needed = 77;
  EXPECT_EQ(Query(key_.get(), u"none", buffer, sizeof buffer, &needed), STATUS_OBJECT_NAME_NOT_FOUND);
  EXPECT_EQ(needed, 77U);
  EXPECT_EQ(buffer[0], 9);
}

TEST_F(NativeValue, OfAnotherInformationClassIsRefused) {
  const UNICODE_STRING name = Text(u"v");
  std::uint8_t buffer[64];
  DWORD needed = 0;
  EXPECT_EQ(query_(key_.get(), &name, 77, buffer, sizeof buffer, &needed), STATUS_INVALID_PARAMETER);
}

TEST_F(NativeValue, TakesTheRightToRead) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  UniqueNativeKey writeOnly;
  ASSERT_EQ(Open(UserHive(), kBase, writeOnly.put(), KEY_SET_VALUE), STATUS_SUCCESS);
  std::uint8_t buffer[64];
  char16_t name[10];
  DWORD needed = 0;
  EXPECT_EQ(Query(writeOnly.get(), u"v", buffer, sizeof buffer, &needed), STATUS_ACCESS_DENIED);
  EXPECT_EQ(RegEnumKeyW(writeOnly.get(), 0, name, 10), 5);
}

TEST_F(NativeValue, OfAHandleThatIsNoneIsRefused) {
  std::uint8_t buffer[64];
  DWORD needed = 0;
  EXPECT_EQ(Query(NativeKeyHandle(0x7770), u"v", buffer, sizeof buffer, &needed), STATUS_INVALID_HANDLE);
}

TEST_F(NativeValue, OfADeletedKeySaysSo) {
  support::SetNumber(Hive::User, kBase, u"v", 1);
  ASSERT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, kBase), 0);
  std::uint8_t buffer[64];
  DWORD needed = 0;
  EXPECT_EQ(Query(key_.get(), u"v", buffer, sizeof buffer, &needed), STATUS_KEY_DELETED);
  EXPECT_EQ(StatusOfOpen(key_.get(), u"x"), STATUS_KEY_DELETED);
}

TEST_F(NativeValue, ItsKeyIsListedByTheWin32CallToo) {
  support::CreateKey(Hive::User, u"Software\\LumenarTest\\one");
  support::CreateKey(Hive::User, u"Software\\LumenarTest\\Two");
  char16_t name[10];
  EXPECT_EQ(RegEnumKeyW(key_.get(), 0, name, 10), 0);
  EXPECT_EQ(std::u16string(name), u"one");
  EXPECT_EQ(RegEnumKeyW(key_.get(), 1, name, 10), 0);
  EXPECT_EQ(std::u16string(name), u"Two");
  EXPECT_EQ(RegEnumKeyW(key_.get(), 2, name, 10), 259);
  EXPECT_EQ(RegEnumKeyW(NativeKeyHandle(0x7770), 0, name, 10), 6);
}

TEST_F(NativeRegistry, AKeyIsClosedAsAKernelHandleOnce) {
  NativeKeyHandle key;
  ASSERT_EQ(Open(UserHive(), u"", &key), STATUS_SUCCESS);
  EXPECT_TRUE(CloseHandle(key));
  EXPECT_FALSE(CloseHandle(key));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

}  // namespace
