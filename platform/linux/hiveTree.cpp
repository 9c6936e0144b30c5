#include "platform/linux/hiveTree.h"

#include <utility>

namespace platform::registry {
namespace {

bool FitsHive(std::u16string_view path) {
  std::size_t depth = 0;
  while (!path.empty()) {
    if (TakeName(path).size() > kMaxKeyName || ++depth > kMaxDepth) return false;
  }
  return true;
}

// The place in a sorted map for a name. Hives are written in order, so that most names belong at the end.
template <class Map>
typename Map::iterator PlaceOf(Map& map, std::u16string_view name) {
  if (map.empty() || NameLess()(std::prev(map.end())->first, name)) return map.end();
  return map.lower_bound(name);
}

}  // namespace

const Key* Key::Find(std::u16string_view path) const noexcept {
  const Key* key = this;
  while (!path.empty()) {
    const std::u16string_view name = TakeName(path);
    if (name.empty()) break;
    const auto found = key->FindSubkey(name);
    if (found == key->subkeys_.end()) return nullptr;
    key = found->second.get();
  }
  return key;
}

// Whoever lists the keys opens them one after the other, and each time walks down the same way to them.
Key::Subkeys::const_iterator Key::FindSubkey(std::u16string_view name) const noexcept {
  for (int tries = 0; tries < 2 && found_ != subkeys_.end(); ++tries, ++found_) {
    if (SameName(found_->first, name)) return found_;
  }
  return found_ = subkeys_.find(name);
}

Key* Key::Find(std::u16string_view path) noexcept { return const_cast<Key*>(std::as_const(*this).Find(path)); }

Key* Key::FindOrCreate(std::u16string_view path) {
  if (!FitsHive(path)) return nullptr;
  Key* key = this;
  for (std::u16string_view name = TakeName(path); !name.empty(); name = TakeName(path)) key = &key->Subkey(name);
  return key;
}

Key& Key::Subkey(std::u16string_view name) {
  const auto place = PlaceOf(subkeys_, name);
  if (place != subkeys_.end() && SameName(place->first, name)) return *place->second;
  order_.clear();
  return *subkeys_.emplace_hint(place, name, std::make_unique<Key>())->second;
}

const std::u16string* Key::SubkeyNameAt(std::size_t index) const {
  if (order_.size() != subkeys_.size()) {
    order_.clear();
    order_.reserve(subkeys_.size());
    for (const auto& [name, key] : subkeys_) order_.push_back(&name);
  }
  return index < order_.size() ? order_[index] : nullptr;
}

bool Key::RemoveTree(std::u16string_view path) {
  Key* parent = this;
  std::u16string_view name = TakeName(path);
  while (!path.empty()) {
    const auto found = parent->subkeys_.find(name);
    if (found == parent->subkeys_.end()) return false;
    parent = found->second.get();
    name = TakeName(path);
  }
  const auto found = parent->subkeys_.find(name);
  if (found == parent->subkeys_.end()) return false;
  parent->order_.clear();
  parent->found_ = parent->subkeys_.end();
  parent->subkeys_.erase(found);
  return true;
}

void Key::Clear() noexcept {
  order_.clear();
  found_ = subkeys_.end();
  subkeys_.clear();
  values_.clear();
}

const Value* Key::FindValue(std::u16string_view name) const noexcept {
  const auto found = values_.find(name);
  return found == values_.end() ? nullptr : &found->second;
}

void Key::SetValue(std::u16string_view name, Value value) {
  const auto place = PlaceOf(values_, name);
  if (place != values_.end() && SameName(place->first, name)) {
    place->second = std::move(value);
  } else {
    values_.emplace_hint(place, name, std::move(value));
  }
}

bool Key::RemoveValue(std::u16string_view name) {
  const auto found = values_.find(name);
  if (found == values_.end()) return false;
  values_.erase(found);
  return true;
}

}  // namespace platform::registry
