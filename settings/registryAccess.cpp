#include "settings/registryAccess.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "platform/module.h"
#include "platform/raii.h"

namespace settings {
namespace {

using platform::DWORD;
using platform::NativeKeyHandle;
using platform::NTSTATUS;
using platform::REGSAM;

// Filled once and never released. Threads that race through the look-up store the same values, so no lock is taken.
struct NativeRegistryApi {
  std::atomic<platform::RtlInitUnicodeStringFunction> RtlInitUnicodeString;
  std::atomic<platform::NtOpenKeyFunction> NtOpenKey;
  std::atomic<platform::NtQueryValueKeyFunction> NtQueryValueKey;
  std::atomic<platform::RtlOpenCurrentUserFunction> RtlOpenCurrentUser;
  std::atomic<bool> loaded;
  std::atomic<platform::HMODULE> module;
};

constinit NativeRegistryApi api{};

// The longest text, in bytes; a longer value counts as unreadable.
constexpr DWORD kLongestText = 0xFFFFF;
// What a query is given beyond the caller's size: room for the header, and for an empty value's smallest answer.
constexpr std::size_t kSpareBytes = 15;
constexpr std::size_t kSmallestBuffer = 16;

bool Missing(const char16_t* path) noexcept { return path == nullptr || *path == u'\0'; }

template <class Function>
bool Resolve(std::atomic<Function>& function, const char* name) noexcept {
  const auto found = reinterpret_cast<Function>(platform::GetProcAddress(api.module.load(), name));
  if (found != nullptr) function.store(found, std::memory_order_relaxed);
  return found != nullptr;
}

platform::UNICODE_STRING Counted(const char16_t* text) noexcept {
  platform::UNICODE_STRING counted{};
  api.RtlInitUnicodeString.load(std::memory_order_relaxed)(&counted, text);
  return counted;
}

NTSTATUS OpenKey(NativeKeyHandle root, const char16_t* path, REGSAM access, NativeKeyHandle* key) noexcept {
  const platform::UNICODE_STRING name = Counted(path);
  const platform::OBJECT_ATTRIBUTES attributes{.Length = sizeof attributes,
                                               .RootDirectory = root,
                                               .ObjectName = &name,
                                               .Attributes = platform::OBJ_CASE_INSENSITIVE,
                                               .SecurityDescriptor = nullptr,
                                               .SecurityQualityOfService = nullptr};
  return api.NtOpenKey.load(std::memory_order_relaxed)(key, access, &attributes);
}

NTSTATUS OpenRelativeToCurrentUser(const char16_t* path, REGSAM access, NativeKeyHandle* key) noexcept {
  NativeKeyHandle hive;
  const NTSTATUS status = api.RtlOpenCurrentUser.load(std::memory_order_relaxed)(access, &hive);
  if (status < 0) return status;
  return OpenKey(hive, path, access, key);  // The hive's handle stays open for the life of the process, as settled.
}

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};

}  // namespace

bool ResolveNativeRegistryApi() noexcept {
  if (api.loaded.load(std::memory_order_acquire)) return true;
  if (!api.module.load()) {
    platform::HMODULE module;
    if (!platform::GetModuleHandleExW(platform::GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &module)) return false;
    api.module.store(module);
  }
  const bool complete = Resolve(api.RtlInitUnicodeString, "RtlInitUnicodeString") &&
                        Resolve(api.NtOpenKey, "NtOpenKey") && Resolve(api.NtQueryValueKey, "NtQueryValueKey") &&
                        Resolve(api.RtlOpenCurrentUser, "RtlOpenCurrentUser");
  if (complete) api.loaded.store(true, std::memory_order_release);
  return complete;
}

NTSTATUS OpenKeyAbsolute(const char16_t* path, REGSAM access, NativeKeyHandle* key) noexcept {
  if (Missing(path) || key == nullptr) return platform::STATUS_INVALID_PARAMETER;
  if (!ResolveNativeRegistryApi()) return platform::STATUS_INTERNAL_ERROR;
  return OpenKey(NativeKeyHandle{}, path, access, key);
}

NTSTATUS OpenKeyCurrentUser(const char16_t* path, REGSAM access, NativeKeyHandle* key) noexcept {
  if (Missing(path) || key == nullptr) return platform::STATUS_INVALID_PARAMETER;
  if (!ResolveNativeRegistryApi()) return platform::STATUS_INTERNAL_ERROR;
  return OpenRelativeToCurrentUser(path, access, key);
}

NTSTATUS QueryValue(NativeKeyHandle key, const char16_t* name, DWORD* type, void* data, DWORD* size) noexcept {
  if (!key || size == nullptr) return platform::STATUS_INVALID_PARAMETER;
  if (!ResolveNativeRegistryApi()) return platform::STATUS_INTERNAL_ERROR;

  const std::size_t bufferSize = *size == 0 ? kSmallestBuffer : *size + kSpareBytes;
  if (bufferSize > UINT32_MAX) return platform::STATUS_INSUFFICIENT_RESOURCES;
  const std::unique_ptr<void, Free> buffer(std::calloc(bufferSize, 1));
  if (!buffer) return platform::STATUS_INSUFFICIENT_RESOURCES;

  const platform::UNICODE_STRING valueName = Counted(name);
  DWORD resultLength = 0;
  NTSTATUS status =
      api.NtQueryValueKey.load(std::memory_order_relaxed)(key, &valueName, platform::KeyValuePartialInformation,
                                                          buffer.get(), static_cast<DWORD>(bufferSize), &resultLength);
  if (status != platform::STATUS_SUCCESS &&
      (status != platform::STATUS_BUFFER_OVERFLOW || resultLength < kSmallestBuffer)) {
    return status;
  }
  platform::KEY_VALUE_PARTIAL_INFORMATION_HEADER header{};
  std::memcpy(&header, buffer.get(), sizeof header);
  // The spare bytes let the system answer with up to three bytes more than the caller has room for.
  if (data != nullptr && header.DataLength > *size) status = platform::STATUS_BUFFER_OVERFLOW;
  *size = header.DataLength;
  if (type != nullptr) *type = header.Type;
  if (data != nullptr && status == platform::STATUS_SUCCESS) {
    std::memcpy(data, static_cast<const char*>(buffer.get()) + sizeof header, header.DataLength);
  }
  return status;
}

NTSTATUS QueryCurrentUserValue(const char16_t* path, const char16_t* name, DWORD* type, void* data, DWORD* size,
                               bool view32) noexcept {
  if (Missing(path)) return platform::STATUS_INVALID_PARAMETER;
  if (!ResolveNativeRegistryApi()) return platform::STATUS_INTERNAL_ERROR;
  platform::UniqueNativeKey key;
  const REGSAM access = platform::KEY_READ | (view32 ? platform::KEY_WOW64_32KEY : 0);
  const NTSTATUS status = OpenRelativeToCurrentUser(path, access, key.put());
  if (status != platform::STATUS_SUCCESS) return status;
  return QueryValue(key.get(), name, type, data, size);
}

NTSTATUS ReadStringValue(NativeKeyHandle key, const char16_t* name, DWORD expectedType, std::u16string* text) {
  DWORD size = 0;
  DWORD type = expectedType;
  QueryValue(key, name, &type, nullptr, &size);  // The size alone tells whether there is a value to read.
  if (size == 0 || size > kLongestText) return platform::STATUS_INSUFFICIENT_RESOURCES;

  // One unit more than the bytes take, zeroed: the text ends also where the stored one has no NUL.
  std::u16string buffer;
  try {
    buffer.resize((size + 1) / 2 + 1);
  } catch (const std::bad_alloc&) {
    return platform::STATUS_INSUFFICIENT_RESOURCES;
  }
  const NTSTATUS status = QueryValue(key, name, &type, buffer.data(), &size);
  if (status != platform::STATUS_SUCCESS) return status;
  buffer.resize(buffer.find(u'\0'));
  *text = std::move(buffer);
  return status;
}

bool ReadNumber(NativeKeyHandle key, const char16_t* name, DWORD* number) noexcept {
  *number = 0;
  DWORD size = sizeof *number;
  return QueryValue(key, name, nullptr, number, &size) == platform::STATUS_SUCCESS;
}

}  // namespace settings
