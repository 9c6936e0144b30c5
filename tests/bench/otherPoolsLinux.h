// Other libraries' pools, to compare with: each with as many threads as there are processors.
#pragma once

#include <functional>
#include <memory>

namespace bench {

class OtherPool {
 public:
  OtherPool() = default;
  OtherPool(const OtherPool&) = delete;
  OtherPool& operator=(const OtherPool&) = delete;
  virtual ~OtherPool() = default;
  virtual void Submit(const std::function<void()>& function) = 0;
};

[[nodiscard]] std::unique_ptr<OtherPool> NewAsioPool();
[[nodiscard]] std::unique_ptr<OtherPool> NewTbbPool();

}  // namespace bench
