// The Win32 calls that read, write and delete values.
#include <cstring>
#include <utility>
#include <vector>

#include "platform/linux/environment.h"
#include "platform/linux/registryKey.h"

namespace platform {
namespace {

using namespace registry;

using Bytes = std::vector<std::uint8_t>;

// The result of `use` for the value of that name; or why there is none.
template <class Use>
LSTATUS WithValue(const RegistryKey& key, std::u16string_view name, Use use) {
  return WithKey(key, KEY_QUERY_VALUE, [&](const Key& found) {
    const Value* const value = found.FindValue(name);
    return value != nullptr ? use(*value) : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
  });
}

// Gives a value to the caller's out-parameters, each of which may be null.
LSTATUS Deliver(const Value& value, DWORD* type, void* data, DWORD* size) {
  const auto needed = static_cast<DWORD>(value.data.size());
  const bool fits = data == nullptr || needed <= *size;
  if (type != nullptr) *type = value.type;
  if (size != nullptr) *size = needed;
  if (!fits) return ERROR_MORE_DATA;
  if (data != nullptr && needed > 0) std::memcpy(data, value.data.data(), needed);
  return ERROR_SUCCESS;
}

bool IsAllowed(DWORD type, DWORD flags) {
  // The types from REG_NONE on, by their place among the flags.
  constexpr DWORD kTypes[] = {REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD};
  if ((flags & RRF_RT_ANY) == RRF_RT_ANY) return true;
  for (std::size_t i = 0; i < std::size(kTypes); ++i) {
    if (kTypes[i] == type) return (flags >> i & 1) != 0;
  }
  return false;
}

// Makes the data end in that many NUL units.
void Terminate(Bytes& data, std::size_t nuls) {
  if (data.size() % 2 != 0) data.push_back(0);
  std::size_t present = 0;
  while (present < nuls && data.size() >= (present + 1) * 2 && data[data.size() - present * 2 - 1] == 0 &&
         data[data.size() - present * 2 - 2] == 0) {
    ++present;
  }
  data.resize(data.size() + (nuls - present) * 2);
}

std::u16string TextOf(const Bytes& data) {
  std::u16string text(data.size() / 2, u'\0');
  std::memcpy(text.data(), data.data(), text.size() * 2);
  return text.substr(0, text.find(u'\0'));
}

// A text with variables is handed out with their values, as a plain text.
void Expand(Value& value) {
  const std::u16string expanded = environment::Expand(TextOf(value.data));
  value.type = REG_SZ;
  value.data.resize(expanded.size() * 2);
  std::memcpy(value.data.data(), expanded.data(), value.data.size());
}

LSTATUS GetValue(HKEY key, std::u16string_view subKey, std::u16string_view name, DWORD flags, DWORD* type, void* data,
                 DWORD* size) {
  auto opened = KeyOf(key);
  if (!opened) return ERROR_INVALID_HANDLE;
  if (!subKey.empty()) {
    const auto base = opened;
    if (const LSTATUS status = OpenKey(*base, subKey, KEY_QUERY_VALUE, kRegistryKeyKind, opened)) return status;
  }
  Value value;
  const auto copy = [&value](const Value& stored) -> LSTATUS {
    value = stored;
    return ERROR_SUCCESS;
  };
  if (const LSTATUS status = WithValue(*opened, name, copy)) return status;
  if (value.type == REG_EXPAND_SZ) Expand(value);
  if (value.type == REG_SZ) Terminate(value.data, 1);
  if (value.type == REG_MULTI_SZ) Terminate(value.data, 2);
  const LSTATUS status = Deliver(value, type, data, size);
  return IsAllowed(value.type, flags) ? status : static_cast<LSTATUS>(ERROR_UNSUPPORTED_TYPE);
}

// Opens the hive for a change of the key's values, makes the change and writes the hive.
template <class Change>
LSTATUS ChangeValues(HKEY key, Change change) {
  const auto opened = KeyOf(key);
  if (!opened) return ERROR_INVALID_HANDLE;
  if (!opened->Grants(KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
  HiveWriting hive(opened->Hive());
  if (hive.Error() != ERROR_SUCCESS) return hive.Error();
  Key* const found = opened->In(hive.Root());
  if (found == nullptr) return ERROR_KEY_DELETED;
  if (const LSTATUS status = change(*found)) return status;
  return hive.Commit();
}

}  // namespace

LSTATUS RegQueryValueExW(HKEY key, const char16_t* valueName, DWORD* reserved, DWORD* type, void* data,
                         DWORD* size) noexcept {
  return Win32Call("RegQueryValueExW", [&]() -> LSTATUS {
    if (reserved != nullptr || (data != nullptr && size == nullptr)) return ERROR_INVALID_PARAMETER;
    const auto opened = KeyOf(key);
    if (!opened) return ERROR_INVALID_HANDLE;
    return WithValue(*opened, TextOrEmpty(valueName),
                     [&](const Value& value) { return Deliver(value, type, data, size); });
  });
}

LSTATUS RegGetValueW(HKEY key, const char16_t* subKey, const char16_t* valueName, DWORD flags, DWORD* type, void* data,
                     DWORD* size) noexcept {
  return Win32Call("RegGetValueW", [&]() -> LSTATUS {
    if (data != nullptr && size == nullptr) return ERROR_INVALID_PARAMETER;
    return GetValue(key, TextOrEmpty(subKey), TextOrEmpty(valueName), flags, type, data, size);
  });
}

LSTATUS RegSetValueExW(HKEY key, const char16_t* valueName, DWORD, DWORD type, const void* data, DWORD size) noexcept {
  return Win32Call("RegSetValueExW", [&]() -> LSTATUS {
    if (data == nullptr && size != 0) return ERROR_NOACCESS;
    const std::u16string_view name = TextOrEmpty(valueName);
    if (name.size() > kMaxValueName) return ERROR_INVALID_PARAMETER;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    Value value{type, Bytes(bytes, bytes + size)};
    return ChangeValues(key, [&](Key& found) -> LSTATUS {
      found.SetValue(name, std::move(value));
      return ERROR_SUCCESS;
    });
  });
}

LSTATUS RegDeleteValueW(HKEY key, const char16_t* valueName) noexcept {
  return Win32Call("RegDeleteValueW", [&] {
    return ChangeValues(key, [&](Key& found) -> LSTATUS {
      return found.RemoveValue(TextOrEmpty(valueName)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
  });
}

}  // namespace platform
