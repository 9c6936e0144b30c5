// Objects that live as long as somebody refers to them: the count, and the weak side of it.
//
// Any thread may call any of this. Every count changes under the process's one lock (countLock.h); destructors and
// OnLastRelease run outside it.
#pragma once

#include <atomic>
#include <cstdint>

namespace runtime {

class WkReference;

// In the count from the moment it reaches 0 until the object is gone or has come back. At or above it, no weak
// reference gives a strong one.
inline constexpr std::uint32_t kDyingCount = 0xDEAD00;

// The base of all of them. A new object counts 0: the first RCPtr makes it 1.
class RCObject {
 public:
  RCObject() noexcept = default;
  RCObject(const RCObject&) = delete;
  RCObject& operator=(const RCObject&) = delete;
  virtual ~RCObject();

  // Runs when the last reference has gone. True keeps the object alive, with nobody referring to it, so that whoever
  // pools it can hand it out again; false has it deleted.
  virtual bool OnLastRelease() { return false; }
  // A new WkReference of this object that counts 0; null when there is no memory. Called under the lock.
  virtual WkReference* CreateWeakReference() noexcept;

  // Both return the new count. The last release deletes the object, unless OnLastRelease keeps it.
  std::uint32_t AddRef() noexcept;
  std::uint32_t Release();
  // With a reference added that the caller releases; null when the object is dying, or there is no memory.
  [[nodiscard]] WkReference* GetWeakReference() noexcept;

  // The count of a moment ago.
  [[nodiscard]] std::uint32_t Count() const noexcept { return refCount.load(); }

 private:
  // The order of the three fields is settled.
  std::atomic<std::uint32_t> refCount = 0;

 protected:
  // While false the object's life is its owner's business, and AddRef and Release change nothing.
  bool counted = true;

 private:
  [[nodiscard]] WkReference* TakeWeakReference() noexcept;

  WkReference* weakReference = nullptr;  // Holds one reference to it. Guarded by the lock.
};

// What remains of an object for those who refer to it weakly.
class WkReference : public RCObject {
 public:
  explicit WkReference(RCObject* object) noexcept : target(object) {}

  // The target with a reference added, as long as it has not begun to die; else null.
  [[nodiscard]] RCObject* LockTarget() noexcept;

 private:
  friend class RCObject;
  RCObject* target;  // Guarded by the lock.
};

}  // namespace runtime
