#include "platform/linux/windowTable.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/error.h"

namespace platform::windowTable {
namespace {

struct Entry {
  windowSocket::Place place;
  std::shared_ptr<Window> own;  // Null for a window of another process.
};

struct Table {
  std::mutex lock;
  std::map<std::uintptr_t, Entry> entries;
  std::uintptr_t lastValue = 0x10000;  // Values below stand for other things than windows.
};

// Never destroyed: threads may still end their windows while the process's statics go.
Table& TheTable() {
  static Table& table = *new Table;
  return table;
}

// REQUIRES: the table's lock.
std::uintptr_t AddEntry(Table& table, Entry entry) {
  const std::uintptr_t value = table.lastValue + 2;
  table.entries.emplace(value, std::move(entry));
  table.lastValue = value;
  return value;
}

}  // namespace

HWND Intern(const windowSocket::Place& place) {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  const auto found =
      std::ranges::find_if(table.entries, [&](const auto& entry) { return entry.second.place == place; });
  if (found != table.entries.end()) return HWND(found->first);
  return HWND(AddEntry(table, {.place = place, .own = nullptr}));
}

void Add(const std::shared_ptr<Window>& window) {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  // Another thread may have found the socket and given it a handle already.
  const auto found =
      std::ranges::find_if(table.entries, [&](const auto& entry) { return entry.second.place == window->place; });
  if (found != table.entries.end()) {
    window->handle = HWND(found->first);
    found->second.own = window;
  } else {
    window->handle = HWND(AddEntry(table, {.place = window->place, .own = window}));
  }
}

void Remove(HWND window) noexcept {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  table.entries.erase(window.value());
}

std::optional<windowSocket::Place> PlaceOf(HWND window) {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  const auto found = table.entries.find(window.value());
  if (found != table.entries.end()) return found->second.place;
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return std::nullopt;
}

std::shared_ptr<Window> OwnWindow(HWND window) noexcept {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  const auto found = table.entries.find(window.value());
  return found == table.entries.end() ? nullptr : found->second.own;
}

void ForgetGone() {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  std::erase_if(table.entries,
                [](const auto& entry) { return !entry.second.own && !windowSocket::IsAlive(entry.second.place); });
}

}  // namespace platform::windowTable
