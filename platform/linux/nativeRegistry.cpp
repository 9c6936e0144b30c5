#include "platform/linux/nativeRegistry.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <new>

#include "platform/linux/registryKey.h"

namespace platform::registry {
namespace {

constexpr std::size_t kHeader = sizeof(KEY_VALUE_PARTIAL_INFORMATION_HEADER);

NTSTATUS StatusOf(LSTATUS error) {
  switch (static_cast<DWORD>(error)) {
    case ERROR_SUCCESS: return STATUS_SUCCESS;
    case ERROR_FILE_NOT_FOUND: return STATUS_OBJECT_NAME_NOT_FOUND;
    case ERROR_ACCESS_DENIED: return STATUS_ACCESS_DENIED;
    case ERROR_INVALID_HANDLE: return STATUS_INVALID_HANDLE;
    case ERROR_INVALID_PARAMETER: return STATUS_INVALID_PARAMETER;
    case ERROR_NOT_ENOUGH_MEMORY: return STATUS_NO_MEMORY;
    case ERROR_KEY_DELETED: return STATUS_KEY_DELETED;
    case static_cast<DWORD>(ERROR_BAD_PATHNAME): return STATUS_OBJECT_PATH_SYNTAX_BAD;
    default: return STATUS_INSUFFICIENT_RESOURCES;
  }
}

// As Win32Call, for calls that return a status.
template <class Body>
NTSTATUS NativeCall(const char* name, Body body) noexcept {
  const DWORD lastError = GetLastError();
  NTSTATUS status = STATUS_INSUFFICIENT_RESOURCES;
  if (!FaultInjected(name)) {
    try {
      status = body();
    } catch (const std::bad_alloc&) {
      status = STATUS_NO_MEMORY;
    }
  }
  SetLastError(lastError);
  return status;
}

NTSTATUS Handle(std::shared_ptr<RegistryKey> opened, NativeKeyHandle* key) {
  *key = NativeKeyHandle(handleTable::Add(std::move(opened)));
  return *key ? STATUS_SUCCESS : STATUS_NO_MEMORY;
}

// One object for all handles with that access: programs leave these handles open, so they should be small.
std::shared_ptr<RegistryKey> CurrentUserHive(REGSAM access) {
  static std::mutex& lock = *new std::mutex;
  static auto& hives = *new std::map<REGSAM, std::weak_ptr<RegistryKey>>;
  const std::lock_guard guard(lock);
  auto hive = hives[access].lock();
  if (!hive) hives[access] = hive = std::make_shared<RegistryKey>(kCurrentUserKind, HiveId::User, u"", access);
  return hive;
}

std::u16string_view TextOf(const UNICODE_STRING& text) { return {text.Buffer, text.Length / sizeof(char16_t)}; }

NTSTATUS OpenBelow(const RegistryKey& base, std::u16string_view path, REGSAM access, NativeKeyHandle* key) {
  std::shared_ptr<RegistryKey> opened;
  if (const LSTATUS error = OpenKey(base, path, access, kNativeKeyKind, opened)) return StatusOf(error);
  return Handle(std::move(opened), key);
}

NTSTATUS OpenAbsolute(std::u16string_view path, REGSAM access, NativeKeyHandle* key) {
  if (!path.starts_with(u'\\')) return STATUS_OBJECT_PATH_SYNTAX_BAD;
  if (!SameName(TakeName(path), u"Registry") || !SameName(TakeName(path), u"Machine")) {
    return STATUS_OBJECT_NAME_NOT_FOUND;
  }
  return OpenBelow(*KeyOf(HKEY_LOCAL_MACHINE), path, access, key);
}

NTSTATUS Open(const OBJECT_ATTRIBUTES* attributes, REGSAM access, NativeKeyHandle* key) {
  if (attributes == nullptr || attributes->Length != sizeof *attributes || attributes->ObjectName == nullptr) {
    return STATUS_INVALID_PARAMETER;
  }
  const std::u16string_view path = TextOf(*attributes->ObjectName);
  if (!attributes->RootDirectory) return OpenAbsolute(path, access, key);
  const auto base = KeyOf(attributes->RootDirectory);
  return base ? OpenBelow(*base, path, access, key) : STATUS_INVALID_HANDLE;
}

// Writes the header and the data as far as they fit.
NTSTATUS Deliver(const Value& value, void* information, DWORD length, DWORD* resultLength) {
  const KEY_VALUE_PARTIAL_INFORMATION_HEADER header{0, value.type, static_cast<DWORD>(value.data.size())};
  auto* const out = static_cast<std::uint8_t*>(information);
  *resultLength = static_cast<DWORD>(kHeader + value.data.size());
  if (length > 0) std::memcpy(out, &header, std::min<std::size_t>(length, kHeader));
  if (length < kHeader) return STATUS_BUFFER_TOO_SMALL;
  const std::size_t fitting = std::min(length - kHeader, value.data.size());
  if (fitting > 0) std::memcpy(out + kHeader, value.data.data(), fitting);
  return fitting == value.data.size() ? STATUS_SUCCESS : STATUS_BUFFER_OVERFLOW;
}

NTSTATUS Query(NativeKeyHandle key, std::u16string_view name, void* information, DWORD length, DWORD* resultLength) {
  const auto opened = KeyOf(key);
  if (!opened) return STATUS_INVALID_HANDLE;
  NTSTATUS status = STATUS_OBJECT_NAME_NOT_FOUND;
  const LSTATUS error = WithKey(*opened, KEY_QUERY_VALUE, [&](const Key& found) -> LSTATUS {
    if (const Value* const value = found.FindValue(name)) status = Deliver(*value, information, length, resultLength);
    return ERROR_SUCCESS;
  });
  return error == ERROR_SUCCESS ? status : StatusOf(error);
}

}  // namespace

void RtlInitUnicodeString(UNICODE_STRING* destination, const char16_t* source) {
  // The length in bytes, with the NUL behind it, must fit 16 bits.
  constexpr std::size_t kLongest = 0xFFFE / sizeof(char16_t) - 1;
  const std::size_t units = std::min(TextOrEmpty(source).size(), kLongest);
  *destination = {static_cast<WORD>(units * sizeof(char16_t)),
                  static_cast<WORD>(source != nullptr ? (units + 1) * sizeof(char16_t) : 0), source};
}

NTSTATUS NtOpenKey(NativeKeyHandle* key, REGSAM access, const OBJECT_ATTRIBUTES* attributes) {
  return NativeCall("NtOpenKey", [&] {
    if (key == nullptr) return STATUS_INVALID_PARAMETER;
    *key = {};
    return Open(attributes, access, key);
  });
}

NTSTATUS NtQueryValueKey(NativeKeyHandle key, const UNICODE_STRING* valueName, DWORD informationClass,
                         void* information, DWORD length, DWORD* resultLength) {
  return NativeCall("NtQueryValueKey", [&] {
    if (informationClass != KeyValuePartialInformation || valueName == nullptr || resultLength == nullptr ||
        (information == nullptr && length > 0)) {
      return STATUS_INVALID_PARAMETER;
    }
    return Query(key, TextOf(*valueName), information, length, resultLength);
  });
}

NTSTATUS RtlOpenCurrentUser(REGSAM access, NativeKeyHandle* key) {
  return NativeCall("RtlOpenCurrentUser", [&] {
    if (key == nullptr) return STATUS_INVALID_PARAMETER;
    *key = {};
    return Handle(CurrentUserHive(access), key);
  });
}

}  // namespace platform::registry
