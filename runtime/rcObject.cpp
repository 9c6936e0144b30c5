#include "runtime/rcObject.h"

#include <mutex>
#include <new>
#include <utility>

#include "runtime/countLock.h"

namespace runtime {

RCObject::~RCObject() {
  if (counted) return;
  WkReference* weak = nullptr;
  {
    const std::lock_guard lock(theCountLock);
    weak = TakeWeakReference();
  }
  if (weak != nullptr) weak->Release();
}

WkReference* RCObject::CreateWeakReference() noexcept { return new (std::nothrow) WkReference(this); }

std::uint32_t RCObject::AddRef() noexcept {
  if (!counted) return refCount.load();
  const std::lock_guard lock(theCountLock);
  const std::uint32_t count = refCount.load(std::memory_order_relaxed) + 1;
  refCount.store(count, std::memory_order_relaxed);
  return count;
}

std::uint32_t RCObject::Release() {
  if (!counted) return refCount.load();
  WkReference* weak = nullptr;
  {
    const std::lock_guard lock(theCountLock);
    std::uint32_t count = refCount.load(std::memory_order_relaxed);
    if (count == 0) return 0;
    refCount.store(--count, std::memory_order_relaxed);
    if (count != 0) return count;
    refCount.store(kDyingCount, std::memory_order_relaxed);
    weak = TakeWeakReference();
  }
  // From here on nobody can get at the object by a weak reference.
  if (weak != nullptr) weak->Release();
  if (!OnLastRelease()) {
    delete this;
    return 0;
  }
  // References that were taken meanwhile count on top of the marker, and stay.
  const std::lock_guard lock(theCountLock);
  const std::uint32_t count = refCount.load(std::memory_order_relaxed) - kDyingCount;
  refCount.store(count, std::memory_order_relaxed);
  return count;
}

WkReference* RCObject::GetWeakReference() noexcept {
  const std::lock_guard lock(theCountLock);
  if (refCount.load(std::memory_order_relaxed) >= kDyingCount) return nullptr;
  if (weakReference == nullptr) {
    weakReference = CreateWeakReference();
    if (weakReference == nullptr) return nullptr;
    weakReference->AddRef();
  }
  weakReference->AddRef();
  return weakReference;
}

// REQUIRES: the lock.
WkReference* RCObject::TakeWeakReference() noexcept {
  if (weakReference != nullptr) weakReference->target = nullptr;
  return std::exchange(weakReference, nullptr);
}

RCObject* WkReference::LockTarget() noexcept {
  const std::lock_guard lock(theCountLock);
  if (target != nullptr) target->AddRef();
  return target;
}

}  // namespace runtime
