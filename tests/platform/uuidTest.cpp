#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/rpc.h"

namespace {

using namespace platform;

constexpr GUID kId{0x875AC244, 0xB80A, 0x420E, {0x90, 0xA2, 0x9C, 0x69, 0xDF, 0xD8, 0xE7, 0x28}};
constexpr char16_t kIdText[] = u"875ac244-b80a-420e-90a2-9c69dfd8e728";

std::u16string TextOf(const GUID& id) {
  char16_t* text = nullptr;
  EXPECT_EQ(UuidToStringW(&id, &text), RPC_S_OK);
  std::u16string copy = text;
  EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
  return copy;
}

TEST(Uuid, IsNewEachTime) {
  std::set<std::u16string> texts;
  for (int made = 0; made < 100; ++made) {
    GUID id{};
    ASSERT_EQ(UuidCreate(&id), RPC_S_OK);
    EXPECT_EQ(id.Data3 >> 12, 4) << "a random one";
    EXPECT_EQ(id.Data4[0] >> 6, 2);
    texts.insert(TextOf(id));
  }
  EXPECT_EQ(texts.size(), 100u);
}

TEST(Uuid, PrintsInSmallLetters) { EXPECT_EQ(TextOf(kId), kIdText); }

TEST(Uuid, IsReadInEitherCase) {
  GUID id{};
  EXPECT_EQ(UuidFromStringW(kIdText, &id), RPC_S_OK);
  EXPECT_EQ(id, kId);
  id = {};
  EXPECT_EQ(UuidFromStringW(u"875AC244-B80A-420E-90A2-9C69DFD8E728", &id), RPC_S_OK);
  EXPECT_EQ(id, kId);
}

TEST(Uuid, OfNoTextIsAllZeros) {
  GUID id = kId;
  EXPECT_EQ(UuidFromStringW(nullptr, &id), RPC_S_OK);
  EXPECT_EQ(id, GUID{});
}

TEST(Uuid, IsNotReadFromAnythingElse) {
  GUID id = kId;
  for (const char16_t* text :
       {u"", u"875ac244", u"{875ac244-b80a-420e-90a2-9c69dfd8e728}", u"875ac244-b80a-420e-90a2-9c69dfd8e72",
        u"875ac244-b80a-420e-90a2-9c69dfd8e7280", u"875ac244+b80a-420e-90a2-9c69dfd8e728",
        u"875ac24g-b80a-420e-90a2-9c69dfd8e728", u"-75ac244-b80a-420e-90a2-9c69dfd8e728",
        u"875ac244-b80a-420e-90a2-9c69dfd8e72\u0138", u"875ac244-b80a-420e-90a2a-9c69dfd8e72"}) {
    EXPECT_EQ(UuidFromStringW(text, &id), RPC_S_INVALID_STRING_UUID);
    EXPECT_EQ(id, kId);
  }
}

TEST(Uuid, PrintsInBracesWhereThereIsRoom) {
  std::u16string text(48, u'x');
  EXPECT_EQ(StringFromGUID2(kId, text.data(), 48), 39);
  EXPECT_EQ(std::u16string(text.c_str()), u"{875AC244-B80A-420E-90A2-9C69DFD8E728}");
  EXPECT_EQ(StringFromGUID2(kId, text.data(), 39), 39);
  EXPECT_EQ(StringFromGUID2(kId, text.data(), 38), 0);
}

TEST(RpcText, ThatIsNullIsFreedToo) {
  char16_t* text = nullptr;
  EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
}

}  // namespace
