// A weak pointer to an RCObject: knows whether the object is still there, and does not keep it.
#pragma once

#include "runtime/rcPtr.h"

namespace runtime {

template <class T>
class WkPtr : public RCPtr<WkReference> {
 public:
  WkPtr() noexcept = default;
  // Empty for no object, and for one that is dying.
  WkPtr(T* object) noexcept : RCPtr<WkReference>(Adopt(object != nullptr ? object->GetWeakReference() : nullptr)) {}
  WkPtr(const RCPtr<T>& object) noexcept : WkPtr(object.Get()) {}

  // The object, kept by the result; empty when it has gone.
  [[nodiscard]] RCPtr<T> Lock() const {
    WkReference* const reference = Get();
    if (reference == nullptr) return {};
    return RCPtr<RCObject>::Adopt(reference->LockTarget());
  }
};

}  // namespace runtime
