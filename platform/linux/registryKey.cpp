#include "platform/linux/registryKey.h"

namespace platform::registry {
namespace {

constexpr std::u16string_view kSoftware = u"Software";
constexpr std::u16string_view kView = u"Wow6432Node";

// The views part below the hive's "Software", and only for a path that names both from the root.
bool LeadsToView(const RegistryKey& base, std::u16string_view subPath, REGSAM access) {
  if ((access & KEY_WOW64_32KEY) == 0 || !base.Path().empty()) return false;
  return SameName(TakeName(subPath), kSoftware) && !SameName(TakeName(subPath), kView);
}

void Append(std::u16string& path, std::u16string_view name) {
  if (!path.empty()) path += u'\\';
  path += name;
}

}  // namespace

const Key* RegistryKey::In(const HiveReading& hive) const noexcept {
  if (deleted_) return nullptr;
  if (revision_ != hive.Revision()) {
    found_ = In(hive.Root());
    revision_ = hive.Revision();
  }
  return found_;
}

const Key* RegistryKey::In(const Key& root) const noexcept {
  if (deleted_) return nullptr;
  const Key* const key = root.Find(path_);
  if (key == nullptr) deleted_ = true;
  return key;
}

Key* RegistryKey::In(Key& root) const noexcept { return const_cast<Key*>(In(std::as_const(root))); }

std::shared_ptr<RegistryKey> KeyOf(HKEY key) {
  static const auto& user =
      *new auto(std::make_shared<RegistryKey>(kRegistryKeyKind, HiveId::User, u"", KEY_ALL_ACCESS));
  static const auto& machine =
      *new auto(std::make_shared<RegistryKey>(kRegistryKeyKind, HiveId::Machine, u"", KEY_ALL_ACCESS));
  if (key == HKEY_CURRENT_USER) return user;
  if (key == HKEY_LOCAL_MACHINE) return machine;
  return handleTable::FindAs<RegistryKey>(key.value());
}

std::shared_ptr<RegistryKey> KeyOf(NativeKeyHandle key) { return handleTable::FindAs<RegistryKey>(key.value()); }

std::u16string PathBelow(const RegistryKey& base, std::u16string_view subPath, REGSAM access) {
  std::u16string path;
  path.reserve(base.Path().size() + subPath.size() + kView.size() + 2);
  path = base.Path();
  if (LeadsToView(base, subPath, access)) {
    Append(path, TakeName(subPath));
    Append(path, kView);
  }
  while (!subPath.empty()) Append(path, TakeName(subPath));
  return path;
}

LSTATUS CheckPath(std::u16string_view subPath) noexcept {
  if (subPath.starts_with(u'\\')) return ERROR_BAD_PATHNAME;
  while (!subPath.empty()) {
    if (TakeName(subPath).size() > kMaxKeyName) return ERROR_INVALID_PARAMETER;
  }
  return ERROR_SUCCESS;
}

LSTATUS OpenKey(const RegistryKey& base, std::u16string_view subPath, REGSAM access, const char* kind,
                std::shared_ptr<RegistryKey>& opened) {
  if (const LSTATUS status = CheckPath(subPath)) return status;
  auto key = std::make_shared<RegistryKey>(kind, base.Hive(), PathBelow(base, subPath, access), access);
  const HiveReading hive(base.Hive(), Asked::File);
  if (hive.Error() != ERROR_SUCCESS) return hive.Error();
  if (base.In(hive) == nullptr) return ERROR_KEY_DELETED;
  if (key->In(hive) == nullptr) return ERROR_FILE_NOT_FOUND;
  opened = std::move(key);
  return ERROR_SUCCESS;
}

}  // namespace platform::registry
