// A pool as one writes it without much thought. Those who submit wait for nobody.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace bench {

class PlainPool {
 public:
  // As many threads as there are processors.
  PlainPool() : PlainPool(std::max(1U, std::thread::hardware_concurrency())) {}
  explicit PlainPool(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
  }
  PlainPool(const PlainPool&) = delete;
  PlainPool& operator=(const PlainPool&) = delete;
  ~PlainPool() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    condition_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }
  void Submit(std::function<void()> function) {
    {
      const std::lock_guard lock(mutex_);
      queue_.push_back(std::move(function));
    }
    condition_.notify_one();
  }

 private:
  void Run() {
    std::unique_lock lock(mutex_);
    while (true) {
      condition_.wait(lock, [this] { return ending_ || !queue_.empty(); });
      if (queue_.empty()) return;
      const std::function<void()> function = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      function();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable condition_;
  std::deque<std::function<void()>> queue_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace bench
