// A hive in memory: keys in keys, and values in them.
//
// Threading: none of its own; whoever holds the hive holds its lock (hive.h), also for the const members.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/registryName.h"
#include "platform/types.h"

namespace platform::registry {

struct Value {
  DWORD type = 0;
  std::vector<std::uint8_t> data;
};

class Key {
 public:
  using Subkeys = std::map<std::u16string, std::unique_ptr<Key>, NameLess>;
  using Values = std::map<std::u16string, Value, NameLess>;

  Key() = default;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  [[nodiscard]] const Subkeys& subkeys() const noexcept { return subkeys_; }
  [[nodiscard]] const Values& values() const noexcept { return values_; }

  // The key at a path below this one (this one for an empty path); null when there is none.
  [[nodiscard]] const Key* Find(std::u16string_view path) const noexcept;
  [[nodiscard]] Key* Find(std::u16string_view path) noexcept;
  // As above, making what is missing. Null when a name is too long or the path too deep for a hive.
  [[nodiscard]] Key* FindOrCreate(std::u16string_view path);
  // The name of the subkey at that place of their order; null behind the last. Walking all of them takes linear time.
  [[nodiscard]] const std::u16string* SubkeyNameAt(std::size_t index) const;
  // False when there is no such key.
  bool RemoveTree(std::u16string_view path);
  void Clear() noexcept;

  [[nodiscard]] const Value* FindValue(std::u16string_view name) const noexcept;
  void SetValue(std::u16string_view name, Value value);
  // False when there is no such value.
  bool RemoveValue(std::u16string_view name);

 private:
  Key& Subkey(std::u16string_view name);
  [[nodiscard]] Subkeys::const_iterator FindSubkey(std::u16string_view name) const noexcept;

  Subkeys subkeys_;
  Values values_;
  // The subkey that was found last; behind the last one when there is none.
  mutable Subkeys::const_iterator found_ = subkeys_.end();
  // The names in order, for access by index; empty when it must be made anew.
  mutable std::vector<const std::u16string*> order_;
};

}  // namespace platform::registry
