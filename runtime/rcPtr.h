// A strong pointer to an RCObject.
#pragma once

#include <atomic>
#include <cstddef>

#include "runtime/rcObject.h"

namespace runtime {

// Keeps one reference. Several threads may use the object that it points to, and while one assigns, others see the old
// or the new pointer, whole; but whether that one still lives is then for the caller to know.
template <class T>
class RCPtr {
 public:
  RCPtr() noexcept = default;
  RCPtr(std::nullptr_t) noexcept {}
  RCPtr(T* object) noexcept : pointer(object) {
    if (object != nullptr) object->AddRef();
  }
  RCPtr(const RCPtr& other) noexcept : RCPtr(other.Get()) {}
  RCPtr(RCPtr&& other) noexcept : pointer(other.pointer.exchange(nullptr)) {}
  // From a related type, checked as the program runs: empty when the object is no T.
  template <class U>
  RCPtr(const RCPtr<U>& other) noexcept : RCPtr(dynamic_cast<T*>(other.Get())) {}
  virtual ~RCPtr() { Drop(pointer.load()); }

  // The new object has its reference before the old one loses it.
  RCPtr& operator=(RCPtr other) {
    Drop(pointer.exchange(other.pointer.exchange(nullptr)));
    return *this;
  }
  void Reset() { Drop(pointer.exchange(nullptr)); }

  // Takes over a reference that the caller has.
  [[nodiscard]] static RCPtr Adopt(T* object) noexcept {
    RCPtr adopted;
    adopted.pointer = object;
    return adopted;
  }

  [[nodiscard]] T* Get() const noexcept { return pointer.load(); }
  T* operator->() const noexcept { return Get(); }
  T& operator*() const noexcept { return *Get(); }
  explicit operator bool() const noexcept { return Get() != nullptr; }
  friend bool operator==(const RCPtr& left, const RCPtr& right) noexcept { return left.Get() == right.Get(); }

 private:
  static void Drop(T* object) {
    if (object != nullptr) object->Release();
  }

  std::atomic<T*> pointer = nullptr;
};

}  // namespace runtime
