// An open registry key: what the handles of both families, Win32 and native, lead to.
#pragma once

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/linux/faults.h"
#include "platform/linux/handleTable.h"
#include "platform/linux/hive.h"
#include "platform/registry.h"

namespace platform::registry {

inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;
inline constexpr LSTATUS ERROR_BAD_PATHNAME = 161;
inline constexpr LSTATUS ERROR_NOACCESS = 998;

// Names its key by the path, so that it finds the key again in whatever the hive has become. A key that was missing
// once counts as deleted for this handle, also when another of that name comes into being.
class RegistryKey final : public KernelObject {
 public:
  RegistryKey(const char* kind, HiveId hive, std::u16string path, REGSAM access)
      : kind_(kind), hive_(hive), path_(std::move(path)), access_(access) {}

  [[nodiscard]] const char* KindName() const noexcept override { return kind_; }
  [[nodiscard]] HiveId Hive() const noexcept { return hive_; }
  [[nodiscard]] const std::u16string& Path() const noexcept { return path_; }
  [[nodiscard]] bool Grants(REGSAM access) const noexcept { return (access_ & access) == access; }
  // An edit by another program is seen at the next open. The hive's root is open all the time, so that it cannot wait.
  [[nodiscard]] Asked WhomToAsk() const noexcept { return path_.empty() ? Asked::File : Asked::Writers; }

  // The key in its hive; null when it was deleted. Found once for as long as the hive stays as it is.
  [[nodiscard]] const Key* In(const HiveReading& hive) const noexcept;
  [[nodiscard]] const Key* In(const Key& root) const noexcept;
  [[nodiscard]] Key* In(Key& root) const noexcept;

 private:
  const char* const kind_;
  const HiveId hive_;
  const std::u16string path_;
  const REGSAM access_;
  mutable std::atomic<bool> deleted_ = false;
  // Guarded by the hive's lock, as is whatever is found in it.
  mutable std::uint64_t revision_ = 0;
  mutable const Key* found_ = nullptr;
};

inline constexpr const char* kRegistryKeyKind = "RegistryKey";
inline constexpr const char* kNativeKeyKind = "NativeKey";
inline constexpr const char* kCurrentUserKind = "CurrentUserHive";

// The key behind a handle, a predefined one included; null when the value is no key's.
[[nodiscard]] std::shared_ptr<RegistryKey> KeyOf(HKEY key);
[[nodiscard]] std::shared_ptr<RegistryKey> KeyOf(NativeKeyHandle key);

// The path in the hive that `subPath` names below `base`, in the view that `access` asks for.
[[nodiscard]] std::u16string PathBelow(const RegistryKey& base, std::u16string_view subPath, REGSAM access);
// Whether a path of that form can name a key: ERROR_BAD_PATHNAME when it begins with a backslash,
// ERROR_INVALID_PARAMETER when it has names that are too long.
[[nodiscard]] LSTATUS CheckPath(std::u16string_view subPath) noexcept;

// Opens a key below `base`. `opened` is null unless the result is ERROR_SUCCESS.
[[nodiscard]] LSTATUS OpenKey(const RegistryKey& base, std::u16string_view subPath, REGSAM access, const char* kind,
                              std::shared_ptr<RegistryKey>& opened);

// The result of `use` for the key as it stands in its hive, which keeps still meanwhile; or why there is none.
template <class Use>
[[nodiscard]] LSTATUS WithKey(const RegistryKey& key, REGSAM access, Use use) {
  if (!key.Grants(access)) return ERROR_ACCESS_DENIED;
  const HiveReading hive(key.Hive(), key.WhomToAsk());
  if (hive.Error() != ERROR_SUCCESS) return hive.Error();
  const Key* const found = key.In(hive);
  return found != nullptr ? use(*found) : static_cast<LSTATUS>(ERROR_KEY_DELETED);
}

[[nodiscard]] inline std::u16string_view TextOrEmpty(const char16_t* text) noexcept {
  return text != nullptr ? std::u16string_view(text) : std::u16string_view();
}

// Carries out a Win32 call of the registry: fails when the tests want it to, reports a lack of memory, and leaves the
// last error alone.
template <class Body>
[[nodiscard]] LSTATUS Win32Call(const char* name, Body body) noexcept {
  const DWORD lastError = GetLastError();
  LSTATUS status = ERROR_NOT_ENOUGH_MEMORY;
  if (FaultInjected(name)) {
    status = static_cast<LSTATUS>(GetLastError());
  } else {
    try {
      status = body();
    } catch (const std::bad_alloc&) {
    }
  }
  SetLastError(lastError);
  return status;
}

}  // namespace platform::registry
