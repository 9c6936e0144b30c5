#include "runtime/xString.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/text.h"

namespace runtime::StringUtils {
namespace {

// A zeroed block for that many units; null without memory.
char16_t* NewUnits(std::size_t count) noexcept { return static_cast<char16_t*>(std::calloc(count, sizeof(char16_t))); }

}  // namespace

XString::~XString() { Clear(); }

void XString::SetWide(const char16_t* text) {
  const std::u16string_view copied = text != nullptr ? text : u"";
  char16_t* const copy = NewUnits(copied.size() + 1);
  if (copy == nullptr) throw std::bad_alloc();
  std::memcpy(copy, copied.data(), copied.size() * sizeof(char16_t));
  Clear();
  wide = copy;
  ownsWide = true;
}

void XString::SetNarrow(const char* text, bool takeOwnership) noexcept {
  Clear();
  if (text == nullptr) return;
  narrow = text;
  ownsNarrow = takeOwnership;
  wide = nullptr;
}

const char16_t* XString::GetWide() noexcept {
  if (wide != nullptr) return wide;
  const int bytes = static_cast<int>(std::strlen(narrow)) + 1;  // With the NUL.
  const int size = platform::MultiByteToWideChar(platform::CP_UTF8, 0, narrow, bytes, nullptr, 0);
  if (size <= 0) return nullptr;
  char16_t* const units = NewUnits(static_cast<std::size_t>(size));
  if (units == nullptr) return nullptr;
  if (platform::MultiByteToWideChar(platform::CP_UTF8, 0, narrow, bytes, units, size) != size) {
    std::free(units);
    return nullptr;
  }
  wide = units;
  ownsWide = true;
  return wide;
}

void XString::Clear() noexcept {
  if (ownsWide) std::free(const_cast<char16_t*>(wide));
  if (ownsNarrow) std::free(const_cast<char*>(narrow));
  wide = u"";
  narrow = "";
  ownsWide = ownsNarrow = false;
}

}  // namespace runtime::StringUtils
