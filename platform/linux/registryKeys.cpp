// The Win32 calls that open, make, list and delete keys.
#include <algorithm>

#include "platform/linux/registryKey.h"

namespace platform {
namespace {

using namespace registry;

LSTATUS Handle(std::shared_ptr<RegistryKey> key, HKEY* result) {
  *result = HKEY(handleTable::Add(std::move(key)));
  return *result ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS Open(HKEY key, std::u16string_view subKey, REGSAM access, HKEY* result) {
  const auto base = KeyOf(key);
  if (!base) return ERROR_INVALID_HANDLE;
  std::shared_ptr<RegistryKey> opened;
  if (const LSTATUS status = OpenKey(*base, subKey, access, kRegistryKeyKind, opened)) return status;
  return Handle(std::move(opened), result);
}

// Makes the key, unless another process has just made it.
LSTATUS Make(const RegistryKey& base, std::u16string_view path, bool& made) {
  HiveWriting hive(base.Hive());
  if (hive.Error() != ERROR_SUCCESS) return hive.Error();
  if (base.In(hive.Root()) == nullptr) return ERROR_KEY_DELETED;
  made = hive.Root().Find(path) == nullptr;
  if (hive.Root().FindOrCreate(path) == nullptr) return ERROR_INVALID_PARAMETER;
  return hive.Commit();
}

// Whether a key may come into being is a matter of the machine's user, not of the handle's access.
LSTATUS Create(HKEY key, std::u16string_view subKey, REGSAM access, HKEY* result, DWORD* disposition) {
  const auto base = KeyOf(key);
  if (!base) return ERROR_INVALID_HANDLE;
  std::shared_ptr<RegistryKey> opened;
  bool made = false;
  LSTATUS status = OpenKey(*base, subKey, access, kRegistryKeyKind, opened);
  if (status == ERROR_FILE_NOT_FOUND) {
    std::u16string path = PathBelow(*base, subKey, access);
    status = Make(*base, path, made);
    opened = std::make_shared<RegistryKey>(kRegistryKeyKind, base->Hive(), std::move(path), access);
  }
  if (status != ERROR_SUCCESS) return status;
  if (disposition != nullptr) *disposition = made ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  return Handle(std::move(opened), result);
}

LSTATUS CopyName(const std::u16string& name, char16_t* buffer, DWORD units) {
  if (buffer == nullptr || name.size() >= units) return ERROR_MORE_DATA;
  *std::copy(name.begin(), name.end(), buffer) = u'\0';
  return ERROR_SUCCESS;
}

LSTATUS EnumKey(const std::shared_ptr<RegistryKey>& key, DWORD index, char16_t* buffer, DWORD units) {
  if (!key) return ERROR_INVALID_HANDLE;
  return WithKey(*key, KEY_ENUMERATE_SUB_KEYS, [&](const Key& found) {
    const std::u16string* const name = found.SubkeyNameAt(index);
    return name != nullptr ? CopyName(*name, buffer, units) : static_cast<LSTATUS>(ERROR_NO_MORE_ITEMS);
  });
}

// An empty path empties the key itself, which then lives on.
LSTATUS DeleteTree(HKEY key, std::u16string_view subKey) {
  const auto base = KeyOf(key);
  if (!base) return ERROR_INVALID_HANDLE;
  if (const LSTATUS status = CheckPath(subKey)) return status;
  HiveWriting hive(base->Hive());
  if (hive.Error() != ERROR_SUCCESS) return hive.Error();
  Key* const found = base->In(hive.Root());
  if (found == nullptr) return ERROR_KEY_DELETED;
  if (subKey.empty()) {
    if (!base->Grants(KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE | KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
    found->Clear();
  } else if (!found->RemoveTree(subKey)) {
    return ERROR_FILE_NOT_FOUND;
  }
  return hive.Commit();
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY key, const char16_t* subKey, DWORD, REGSAM access, HKEY* result) noexcept {
  return Win32Call("RegOpenKeyExW", [&] {
    if (result == nullptr) return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
    *result = {};
    return Open(key, TextOrEmpty(subKey), access, result);
  });
}

LSTATUS RegCreateKeyExW(HKEY key, const char16_t* subKey, DWORD, std::nullptr_t, DWORD, REGSAM access, std::nullptr_t,
                        HKEY* result, DWORD* disposition) noexcept {
  return Win32Call("RegCreateKeyExW", [&] {
    if (result == nullptr) return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
    *result = {};
    return Create(key, TextOrEmpty(subKey), access, result, disposition);
  });
}

LSTATUS RegCloseKey(HKEY key) noexcept {
  if (key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
  const DWORD lastError = GetLastError();
  const bool closed = handleTable::FindAs<RegistryKey>(key.value()) && handleTable::Close(key.value());
  SetLastError(lastError);
  return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, std::nullptr_t, std::nullptr_t,
                      std::nullptr_t, std::nullptr_t) noexcept {
  return Win32Call("RegEnumKeyExW", [&] {
    if (nameLength == nullptr) return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
    const LSTATUS status = EnumKey(KeyOf(key), index, name, *nameLength);
    if (status == ERROR_SUCCESS) *nameLength = static_cast<DWORD>(std::u16string_view(name).size());
    return status;
  });
}

LSTATUS RegEnumKeyW(HKEY key, DWORD index, char16_t* name, DWORD nameLength) noexcept {
  return Win32Call("RegEnumKeyW", [&] { return EnumKey(KeyOf(key), index, name, nameLength); });
}

LSTATUS RegEnumKeyW(NativeKeyHandle key, DWORD index, char16_t* name, DWORD nameLength) noexcept {
  return Win32Call("RegEnumKeyW", [&] { return EnumKey(KeyOf(key), index, name, nameLength); });
}

LSTATUS RegQueryInfoKeyW(HKEY key, std::nullptr_t, std::nullptr_t, std::nullptr_t, DWORD* subKeyCount, std::nullptr_t,
                         std::nullptr_t, std::nullptr_t, std::nullptr_t, std::nullptr_t, std::nullptr_t,
                         std::nullptr_t) noexcept {
  return Win32Call("RegQueryInfoKeyW", [&]() -> LSTATUS {
    const auto opened = KeyOf(key);
    if (!opened) return ERROR_INVALID_HANDLE;
    return WithKey(*opened, KEY_QUERY_VALUE, [&](const Key& found) -> LSTATUS {
      if (subKeyCount != nullptr) *subKeyCount = static_cast<DWORD>(found.subkeys().size());
      return ERROR_SUCCESS;
    });
  });
}

LSTATUS RegDeleteTreeW(HKEY key, const char16_t* subKey) noexcept {
  return Win32Call("RegDeleteTreeW", [&] { return DeleteTree(key, TextOrEmpty(subKey)); });
}

}  // namespace platform
