#include "platform/registry.h"

#include <windows.h>

namespace platform {
namespace {

static_assert(HKEY_CURRENT_USER.value() == 0xFFFFFFFF80000001 && HKEY_LOCAL_MACHINE.value() == 0xFFFFFFFF80000002);

::HKEY SystemKey(HKEY key) { return reinterpret_cast<::HKEY>(key.value()); }

const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
wchar_t* Wide(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }

// A number of the system's type in place of an out-parameter of ours, which may be null.
class OutNumber {
 public:
  explicit OutNumber(DWORD* ours) : ours_(ours), system_(ours != nullptr ? *ours : 0) {}
  OutNumber(const OutNumber&) = delete;
  OutNumber& operator=(const OutNumber&) = delete;
  ~OutNumber() {
    if (ours_ != nullptr) *ours_ = system_;
  }
  [[nodiscard]] ::DWORD* get() { return ours_ != nullptr ? &system_ : nullptr; }

 private:
  DWORD* ours_;
  ::DWORD system_;
};

// The same for a key.
class OutKey {
 public:
  explicit OutKey(HKEY* ours) : ours_(ours), system_(SystemKey(*ours)) {}
  OutKey(const OutKey&) = delete;
  OutKey& operator=(const OutKey&) = delete;
  ~OutKey() { *ours_ = HKEY(reinterpret_cast<std::uintptr_t>(system_)); }
  [[nodiscard]] ::HKEY* get() { return &system_; }

 private:
  HKEY* ours_;
  ::HKEY system_;
};

}  // namespace

LSTATUS RegOpenKeyExW(HKEY key, const char16_t* subKey, DWORD options, REGSAM access, HKEY* result) noexcept {
  return ::RegOpenKeyExW(SystemKey(key), Wide(subKey), options, access, OutKey(result).get());
}

LSTATUS RegCreateKeyExW(HKEY key, const char16_t* subKey, DWORD reserved, std::nullptr_t, DWORD options, REGSAM access,
                        std::nullptr_t, HKEY* result, DWORD* disposition) noexcept {
  return ::RegCreateKeyExW(SystemKey(key), Wide(subKey), reserved, nullptr, options, access, nullptr,
                           OutKey(result).get(), OutNumber(disposition).get());
}

LSTATUS RegCloseKey(HKEY key) noexcept { return ::RegCloseKey(SystemKey(key)); }

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, std::nullptr_t, std::nullptr_t,
                      std::nullptr_t, std::nullptr_t) noexcept {
  return ::RegEnumKeyExW(SystemKey(key), index, Wide(name), OutNumber(nameLength).get(), nullptr, nullptr, nullptr,
                         nullptr);
}

LSTATUS RegEnumKeyW(HKEY key, DWORD index, char16_t* name, DWORD nameLength) noexcept {
  return ::RegEnumKeyW(SystemKey(key), index, Wide(name), nameLength);
}

LSTATUS RegEnumKeyW(NativeKeyHandle key, DWORD index, char16_t* name, DWORD nameLength) noexcept {
  return RegEnumKeyW(HKEY(key.value()), index, name, nameLength);
}

LSTATUS RegQueryInfoKeyW(HKEY key, std::nullptr_t, std::nullptr_t, std::nullptr_t, DWORD* subKeyCount, std::nullptr_t,
                         std::nullptr_t, std::nullptr_t, std::nullptr_t, std::nullptr_t, std::nullptr_t,
                         std::nullptr_t) noexcept {
  return ::RegQueryInfoKeyW(SystemKey(key), nullptr, nullptr, nullptr, OutNumber(subKeyCount).get(), nullptr, nullptr,
                            nullptr, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS RegQueryValueExW(HKEY key, const char16_t* valueName, DWORD* reserved, DWORD* type, void* data,
                         DWORD* size) noexcept {
  return ::RegQueryValueExW(SystemKey(key), Wide(valueName), OutNumber(reserved).get(), OutNumber(type).get(),
                            static_cast<::BYTE*>(data), OutNumber(size).get());
}

LSTATUS RegGetValueW(HKEY key, const char16_t* subKey, const char16_t* valueName, DWORD flags, DWORD* type, void* data,
                     DWORD* size) noexcept {
  return ::RegGetValueW(SystemKey(key), Wide(subKey), Wide(valueName), flags, OutNumber(type).get(), data,
                        OutNumber(size).get());
}

LSTATUS RegSetValueExW(HKEY key, const char16_t* valueName, DWORD reserved, DWORD type, const void* data,
                       DWORD size) noexcept {
  return ::RegSetValueExW(SystemKey(key), Wide(valueName), reserved, type, static_cast<const ::BYTE*>(data), size);
}

LSTATUS RegDeleteValueW(HKEY key, const char16_t* valueName) noexcept {
  return ::RegDeleteValueW(SystemKey(key), Wide(valueName));
}

LSTATUS RegDeleteTreeW(HKEY key, const char16_t* subKey) noexcept {
  return ::RegDeleteTreeW(SystemKey(key), Wide(subKey));
}

LSTATUS RegNotifyChangeKeyValue(HKEY key, bool watchSubtree, DWORD filter, EventHandle event, OnlyTrue) noexcept {
  return ::RegNotifyChangeKeyValue(reinterpret_cast<::HKEY>(key.value()), watchSubtree ? TRUE : FALSE, filter,
                                   reinterpret_cast<::HANDLE>(event.value()), TRUE);
}

}  // namespace platform
