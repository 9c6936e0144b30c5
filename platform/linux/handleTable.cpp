#include "platform/linux/handleTable.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <new>

namespace platform {
namespace handleTable {
namespace {

struct Table {
  std::mutex lock;
  std::vector<std::shared_ptr<KernelObject>> slots;  // Null where a handle was closed.
  std::vector<std::size_t> closed;                   // Where that is: a heap, the first at its top, with room for all.
};

// Never destroyed: handles may be closed while the process's own statics go.
Table& TheTable() {
  static Table& table = *new Table;
  return table;
}

// The slot behind a value, or null. REQUIRES: the table's lock.
std::shared_ptr<KernelObject>* SlotOf(Table& table, std::uintptr_t value) {
  if (value == 0 || value % 4 != 0 || value / 4 > table.slots.size()) return nullptr;
  std::shared_ptr<KernelObject>& slot = table.slots[value / 4 - 1];
  return slot ? &slot : nullptr;
}

}  // namespace

std::uintptr_t Add(std::shared_ptr<KernelObject> object) noexcept try {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  // Some handles stay open for good, so that it would take ever longer to look for a closed one among all.
  if (!table.closed.empty()) {
    std::ranges::pop_heap(table.closed, std::greater());
    const std::size_t place = table.closed.back();
    table.closed.pop_back();
    table.slots[place] = std::move(object);
    return (place + 1) * 4;
  }
  if (table.closed.capacity() <= table.slots.size()) table.closed.reserve((table.slots.size() + 1) * 2);
  table.slots.push_back(std::move(object));
  return table.slots.size() * 4;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

std::shared_ptr<KernelObject> Find(std::uintptr_t value) noexcept {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  if (const auto* slot = SlotOf(table, value)) return *slot;
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

bool Close(std::uintptr_t value) noexcept {
  Table& table = TheTable();
  std::shared_ptr<KernelObject> closed;  // Released behind the lock: a destructor may close other handles.
  {
    const std::lock_guard lock(table.lock);
    if (auto* slot = SlotOf(table, value)) {
      closed.swap(*slot);
      table.closed.push_back(value / 4 - 1);
      std::ranges::push_heap(table.closed, std::greater());
    }
  }
  if (!closed) SetLastError(ERROR_INVALID_HANDLE);
  return closed != nullptr;
}

std::vector<std::string> LiveKinds() {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  std::vector<std::string> kinds;
  for (const auto& slot : table.slots) {
    if (slot) kinds.emplace_back(slot->KindName());
  }
  return kinds;
}

}  // namespace handleTable

bool CloseHandle(KernelHandle handle) noexcept { return handleTable::Close(handle.value()); }

}  // namespace platform
