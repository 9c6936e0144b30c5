#include "tests/bench/otherPoolsLinux.h"

#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <thread>

namespace bench {
namespace {

unsigned Processors() { return std::max(1U, std::thread::hardware_concurrency()); }

class AsioPool final : public OtherPool {
 public:
  ~AsioPool() override { pool_.join(); }
  void Submit(const std::function<void()>& function) override { asio::post(pool_, function); }

 private:
  asio::thread_pool pool_{Processors()};
};

class TbbPool final : public OtherPool {
 public:
  void Submit(const std::function<void()>& function) override { arena_.enqueue(function); }

 private:
  // No place is kept for the thread that submits: it does not join in.
  oneapi::tbb::task_arena arena_{static_cast<int>(Processors()), 0};
};

}  // namespace

std::unique_ptr<OtherPool> NewAsioPool() { return std::make_unique<AsioPool>(); }
std::unique_ptr<OtherPool> NewTbbPool() { return std::make_unique<TbbPool>(); }

}  // namespace bench
