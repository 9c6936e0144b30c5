#include <sys/random.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/rpcBindings.h"
#include "platform/linux/rpcText.h"
#include "platform/rpc.h"

namespace platform {
namespace {

constexpr std::size_t kTextLength = 36;

using Text = std::array<char, kTextLength + 1>;

// In small letters.
Text TextOf(const GUID& id) {
  Text text{};
  const auto& tail = id.Data4;
  std::snprintf(text.data(), text.size(), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", id.Data1, id.Data2,
                id.Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5], tail[6], tail[7]);
  return text;
}

// A number of so many hexadecimal digits at the front of the text, which loses them.
template <class Number>
bool Take(std::u16string_view& text, Number& number, std::size_t digits = 2 * sizeof(Number)) {
  std::array<char, 8> narrow{};
  for (std::size_t at = 0; at < digits; ++at) narrow[at] = text[at] < 0x80 ? static_cast<char>(text[at]) : '?';
  const char* const end = narrow.data() + digits;
  text.remove_prefix(digits);
  return std::from_chars(narrow.data(), end, number, 16).ptr == end;
}

bool TakeDash(std::u16string_view& text) {
  const bool there = text.front() == u'-';
  text.remove_prefix(1);
  return there;
}

std::optional<GUID> Parsed(std::u16string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  GUID id{};
  const bool head = Take(text, id.Data1) && TakeDash(text) && Take(text, id.Data2) && TakeDash(text) &&
                    Take(text, id.Data3) && TakeDash(text);
  if (!head) return std::nullopt;
  for (std::size_t at = 0; at < id.Data4.size(); ++at) {
    if ((at == 2 && !TakeDash(text)) || !Take(text, id.Data4[at])) return std::nullopt;
  }
  return id;
}

}  // namespace

int StringFromGUID2(const GUID& id, char16_t* text, int size) noexcept {
  constexpr int kSize = kTextLength + 3;
  if (FaultInjected("StringFromGUID2")) return 0;
  if (size < kSize) return 0;
  Text plain = TextOf(id);
  for (char& letter : plain) {
    if (letter >= 'a') letter = static_cast<char>(letter - 'a' + 'A');
  }
  *text++ = u'{';
  text = std::copy_n(plain.data(), kTextLength, text);
  *text++ = u'}';
  *text = u'\0';
  return kSize;
}

RPC_STATUS UuidCreate(GUID* id) noexcept {
  if (FaultInjected("UuidCreate")) return InjectedRpcStatus();
  std::array<std::uint8_t, sizeof(GUID)> bytes{};
  // So few bytes come whole, whatever interrupts.
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return RPC_S_OUT_OF_MEMORY;
  *id = std::bit_cast<GUID>(bytes);
  id->Data3 = static_cast<std::uint16_t>((id->Data3 & 0x0FFF) | 0x4000);   // Version 4: random.
  id->Data4[0] = static_cast<std::uint8_t>((id->Data4[0] & 0x3F) | 0x80);  // The common variant.
  return RPC_S_OK;
}

RPC_STATUS UuidToStringW(const GUID* id, char16_t** text) noexcept {
  if (FaultInjected("UuidToStringW")) return InjectedRpcStatus();
  const Text plain = TextOf(*id);
  std::array<char16_t, kTextLength> wide{};
  std::copy_n(plain.data(), kTextLength, wide.data());
  return rpcText::HandOut({wide.data(), wide.size()}, text);
}

RPC_STATUS UuidFromStringW(const char16_t* text, GUID* id) noexcept {
  if (FaultInjected("UuidFromStringW")) return InjectedRpcStatus();
  if (text == nullptr) {
    *id = {};
    return RPC_S_OK;
  }
  const auto parsed = Parsed(text);
  if (!parsed) return RPC_S_INVALID_STRING_UUID;
  *id = *parsed;
  return RPC_S_OK;
}

RPC_STATUS RpcStringFreeW(char16_t** text) noexcept {
  rpcText::TakeBack(text);
  return RPC_S_OK;
}

}  // namespace platform
