#include "platform/linux/windowClasses.h"

#include <map>
#include <mutex>

namespace platform::windowClasses {
namespace {

// The system numbers atoms from here, and window classes are atoms.
constexpr std::size_t kFirstAtom = 0xC000;

struct Table {
  std::mutex lock;
  std::map<std::u16string, WNDPROC> procedures;
};

// Never destroyed: threads may still use their windows while the process's statics go.
Table& TheTable() {
  static Table& table = *new Table;
  return table;
}

}  // namespace

std::u16string Folded(std::u16string_view name) {
  std::u16string folded(name);
  for (char16_t& unit : folded) {
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit - u'A' + u'a');
  }
  return folded;
}

WORD Add(std::u16string_view name, WNDPROC procedure) {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  if (!table.procedures.emplace(Folded(name), procedure).second) return 0;
  return static_cast<WORD>(kFirstAtom + table.procedures.size());
}

std::optional<WNDPROC> ProcedureOf(std::u16string_view name) {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  const auto found = table.procedures.find(Folded(name));
  if (found == table.procedures.end()) return std::nullopt;
  return found->second;
}

}  // namespace platform::windowClasses
