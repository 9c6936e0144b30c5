#include "tests/support/machine.h"

#include <cstdio>
#include <cstdlib>

#include "platform/raii.h"

namespace support {
namespace {

platform::HKEY RootOf(Hive hive) {
  return hive == Hive::User ? platform::HKEY_CURRENT_USER : platform::HKEY_LOCAL_MACHINE;
}

void Check(platform::LSTATUS status, const char* what) {
  if (status == 0) return;
  std::fprintf(stderr, "%s: error %d\n", what, status);
  std::abort();
}

platform::UniqueKey Created(Hive hive, std::u16string_view key) {
  platform::UniqueKey created;
  Check(platform::RegCreateKeyExW(RootOf(hive), std::u16string(key).c_str(), 0, nullptr,
                                  platform::REG_OPTION_NON_VOLATILE, platform::KEY_WRITE | platform::KEY_WOW64_64KEY,
                                  nullptr, created.put(), nullptr),
        "RegCreateKeyExW");
  return created;
}

}  // namespace

void SetBytes(Hive hive, std::u16string_view key, std::u16string_view name, std::uint32_t type,
              const std::vector<std::uint8_t>& bytes) {
  // Exactly these bytes: the system would store a NUL that it finds behind a text as well.
  std::vector<std::uint8_t> guarded = bytes;
  guarded.insert(guarded.end(), {0xFF, 0xFF});
  Check(platform::RegSetValueExW(Created(hive, key).get(), std::u16string(name).c_str(), 0, type, guarded.data(),
                                 static_cast<platform::DWORD>(bytes.size())),
        "RegSetValueExW");
}

void SetText(Hive hive, std::u16string_view key, std::u16string_view name, std::u16string_view text) {
  const std::u16string terminated(text);
  Check(platform::RegSetValueExW(Created(hive, key).get(), std::u16string(name).c_str(), 0, platform::REG_SZ,
                                 terminated.c_str(), static_cast<platform::DWORD>((terminated.size() + 1) * 2)),
        "RegSetValueExW");
}

void SetNumber(Hive hive, std::u16string_view key, std::u16string_view name, std::uint32_t number) {
  Check(platform::RegSetValueExW(Created(hive, key).get(), std::u16string(name).c_str(), 0, platform::REG_DWORD,
                                 &number, sizeof number),
        "RegSetValueExW");
}

void CreateKey(Hive hive, std::u16string_view key) { Created(hive, key); }

void DeleteKey(Hive hive, std::u16string_view key) {
  platform::RegDeleteTreeW(RootOf(hive), std::u16string(key).c_str());
}

std::string Narrow(std::u16string_view text) {
  std::string narrow;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t point = text[i];
    if (point >= 0xD800 && point < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
      point = 0x10000 + ((point - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    }
    const auto put = [&](char32_t byte) { narrow += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (point < 0x80) {
      put(point);
    } else if (point < 0x800) {
      put(0xC0 | point >> 6), put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
      put(0xE0 | point >> 12), put(0x80 | (point >> 6 & 0x3F)), put(0x80 | (point & 0x3F));
    } else {
      put(0xF0 | point >> 18), put(0x80 | (point >> 12 & 0x3F)), put(0x80 | (point >> 6 & 0x3F)),
          put(0x80 | (point & 0x3F));
    }
  }
  return narrow;
}

std::u16string Wide(std::string_view text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end())).u16string();
}

}  // namespace support
