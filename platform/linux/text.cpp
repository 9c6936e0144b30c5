#include "platform/text.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/linux/ansi.h"
#include "platform/linux/faults.h"
#include "platform/linux/utf8.h"

namespace platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsContinuation(unsigned byte) { return (byte & 0xC0) == 0x80; }

// Takes one code point off the front. Malformed bytes give one U+FFFD for a lead with the continuations that belong to
// it, up to and with the first that it does not allow.
char32_t TakeUtf8(std::string_view& text) {
  const auto byteAt = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned lead = byteAt(0);
  text.remove_prefix(1);
  if (lead < 0x80) return lead;
  if (lead < 0xC2 || lead > 0xF4) return kReplacement;
  const std::size_t more = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  // The first byte behind the lead rules out overlong forms, surrogates, and what lies above U+10FFFF.
  unsigned lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  char32_t point = lead & (0x3Fu >> more);
  for (std::size_t i = 0; i < more; ++i) {
    if (text.empty() || !IsContinuation(byteAt(0))) return kReplacement;
    const unsigned next = byteAt(0);
    text.remove_prefix(1);
    if (next < lowest || next > highest) return kReplacement;
    point = point << 6 | (next & 0x3F);
    lowest = 0x80;
    highest = 0xBF;
  }
  return point;
}

char32_t TakeUtf16(std::u16string_view& wide) {
  const char16_t unit = wide.front();
  wide.remove_prefix(1);
  if (!utf8::IsHigh(unit) && !utf8::IsLow(unit)) return unit;
  if (utf8::IsLow(unit) || wide.empty() || !utf8::IsLow(wide.front())) return kReplacement;
  const char32_t point = utf8::PointOf(unit, wide.front());
  wide.remove_prefix(1);
  return point;
}

// Whether the text is ASCII, as nearly every text is: then each unit is one byte. Eight bytes at a time.
bool IsAscii(std::u16string_view text) {
  constexpr std::size_t kStep = sizeof(std::uint64_t) / sizeof(char16_t);
  std::size_t at = 0;
  std::uint64_t seen = 0;
  for (; at + kStep <= text.size(); at += kStep) {
    std::uint64_t units = 0;
    std::memcpy(&units, text.data() + at, sizeof units);
    seen |= units;
  }
  for (; at < text.size(); ++at) seen |= text[at];
  return (seen & 0xFF80FF80FF80FF80) == 0;
}

template <class Char>
void Copy(std::basic_string_view<Char> text, Char* buffer) {
  std::ranges::copy(text, buffer);
}

// One byte for each unit of a text that is ASCII. Four units at a time.
void Copy(std::u16string_view text, char* bytes) {
  constexpr std::size_t kStep = sizeof(std::uint64_t) / sizeof(char16_t);
  std::size_t at = 0;
  for (; at + kStep <= text.size(); at += kStep) {
    std::uint64_t units = 0;
    std::memcpy(&units, text.data() + at, sizeof units);
    units = (units | units >> 8) & 0x0000FFFF0000FFFF;
    const auto narrow = static_cast<std::uint32_t>(units | units >> 16);
    std::memcpy(bytes + at, &narrow, sizeof narrow);
  }
  for (; at < text.size(); ++at) bytes[at] = static_cast<char>(text[at]);
}

int NothingConverted(DWORD error) {
  SetLastError(error);
  return 0;
}

// The input of a conversion: so many units, or, when the length is negative, up to the NUL and with it.
template <class Char>
std::basic_string_view<Char> Input(const Char* text, int length) {
  return length < 0 ? std::basic_string_view<Char>(text, std::char_traits<Char>::length(text) + 1)
                    : std::basic_string_view<Char>(text, static_cast<std::size_t>(length));
}

// Copies a result to the caller's buffer as far as it fits; tells its size when there is no buffer.
template <class Text, class Char>
int Deliver(const Text& result, Char* buffer, int size) {
  if (result.size() > INT_MAX) return NothingConverted(ERROR_INVALID_PARAMETER);
  if (size != 0) {
    const auto room = static_cast<std::size_t>(size);
    Copy(std::basic_string_view<typename Text::value_type>(result).substr(0, room), buffer);
    if (result.size() > room) return NothingConverted(ERROR_INSUFFICIENT_BUFFER);
  }
  return static_cast<int>(result.size());
}

}  // namespace

int MultiByteToWideChar(CodePage codePage, DWORD flags, const char* text, int length, char16_t* wide,
                        int wideSize) noexcept try {
  if (FaultInjected("MultiByteToWideChar")) return 0;
  if (codePage != CP_UTF8 || flags != 0 || text == nullptr || length == 0 || wideSize < 0 ||
      (wide == nullptr && wideSize != 0)) {
    return NothingConverted(ERROR_INVALID_PARAMETER);
  }
  std::string_view input = Input(text, length);
  std::u16string result;
  result.reserve(input.size());
  while (!input.empty()) utf8::Append(result, TakeUtf8(input));
  return Deliver(result, wide, wideSize);
} catch (const std::bad_alloc&) {
  return NothingConverted(ERROR_NOT_ENOUGH_MEMORY);
}

int WideCharToMultiByte(CodePage codePage, DWORD flags, const char16_t* wide, int wideLength, char* text, int size,
                        std::nullptr_t, std::nullptr_t) noexcept try {
  if (FaultInjected("WideCharToMultiByte")) return 0;
  if (flags != 0 || wide == nullptr || wideLength == 0 || size < 0 || (text == nullptr && size != 0)) {
    return NothingConverted(ERROR_INVALID_PARAMETER);
  }
  std::u16string_view input = Input(wide, wideLength);
  if (codePage == CP_THREAD_ACP) return Deliver(ansi::FromWide(input), text, size);
  if (IsAscii(input)) return Deliver(input, text, size);
  std::string result;
  result.reserve(input.size());
  while (!input.empty()) utf8::Append(result, TakeUtf16(input));
  return Deliver(result, text, size);
} catch (const std::bad_alloc&) {
  return NothingConverted(ERROR_NOT_ENOUGH_MEMORY);
}

char16_t* wcstok_s(char16_t* text, const char16_t* delimiters, char16_t** context) noexcept {
  const std::u16string_view set(delimiters);
  const auto delimits = [&set, only = set.size() == 1 ? set[0] : u'\0'](char16_t unit) {
    return only != u'\0' ? unit == only : set.contains(unit);
  };
  char16_t* start = text != nullptr ? text : *context;
  while (*start != u'\0' && delimits(*start)) ++start;
  char16_t* end = start;
  while (*end != u'\0' && !delimits(*end)) ++end;
  *context = *end == u'\0' ? end : end + 1;
  *end = u'\0';
  return end == start ? nullptr : start;
}

}  // namespace platform
