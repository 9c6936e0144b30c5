// How threads of a test meet. The library's latches and semaphores wait on atomics, and on Windows those of this
// compiler's library may lose a wake-up.
#pragma once

#include <condition_variable>
#include <mutex>

namespace support {

// One thread waits until another one has said so; each word is good for one wait.
class Signal {
 public:
  // Within the lock: whoever has waited may let this object go at once.
  void Give() {
    const std::lock_guard lock(lock_);
    ++given_;
    changed_.notify_one();
  }
  void Await() {
    std::unique_lock lock(lock_);
    changed_.wait(lock, [this] { return given_ > 0; });
    --given_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int given_ = 0;
};

// Nobody goes on before all have arrived.
class StartLine {
 public:
  explicit StartLine(int count) : missing_(count) {}
  void ArriveAndWait() {
    std::unique_lock lock(lock_);
    if (--missing_ == 0) changed_.notify_all();
    changed_.wait(lock, [this] { return missing_ <= 0; });
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int missing_;
};

}  // namespace support
