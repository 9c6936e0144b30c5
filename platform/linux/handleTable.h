// The handles of this process: what each handle value stands for.
//
// A handle value is a slot of the table; the slot shares the ownership of one kernel object. Values are multiples of 4
// and never 0. The table may be used from any thread.
#pragma once

#include <concepts>
#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/handles.h"

namespace platform {

// What a handle leads to. The destructor releases the object, and runs when the last handle is closed, or when the last
// call that was using the object returns, whichever is later.
class KernelObject {
 public:
  KernelObject() = default;
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;
  virtual ~KernelObject() = default;

  // The word for the list of live handles.
  [[nodiscard]] virtual const char* KindName() const noexcept = 0;
};

namespace handleTable {

// Adds a handle to the object. 0, with ERROR_NOT_ENOUGH_MEMORY, when there is no memory.
[[nodiscard]] std::uintptr_t Add(std::shared_ptr<KernelObject> object) noexcept;
// The object behind a value; null, with ERROR_INVALID_HANDLE, when the value is no open handle.
[[nodiscard]] std::shared_ptr<KernelObject> Find(std::uintptr_t value) noexcept;
// Closes one handle. False, with ERROR_INVALID_HANDLE, when the value is no open handle.
bool Close(std::uintptr_t value) noexcept;
// The kinds of the handles that are open now, in the order of their values.
[[nodiscard]] std::vector<std::string> LiveKinds();

// The object as the kind that the caller expects; null, with ERROR_INVALID_HANDLE, when it is of another kind.
template <std::derived_from<KernelObject> Object>
[[nodiscard]] std::shared_ptr<Object> FindAs(std::uintptr_t value) noexcept;

}  // namespace handleTable
}  // namespace platform

template <std::derived_from<platform::KernelObject> Object>
std::shared_ptr<Object> platform::handleTable::FindAs(std::uintptr_t value) noexcept {
  auto object = std::dynamic_pointer_cast<Object>(Find(value));
  if (!object) SetLastError(ERROR_INVALID_HANDLE);
  return object;
}
