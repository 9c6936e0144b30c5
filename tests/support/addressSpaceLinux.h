// A bound on the process's address space, for tests of what happens without memory. A sanitizer's own needs exceed it.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

namespace support {

inline constexpr bool kAddressSpaceCanBeBounded = !LUMENAR_SANITIZED;

// While it lives, the process can have so many bytes more than it has. One at a time.
class BoundedAddressSpace {
 public:
  explicit BoundedAddressSpace(rlim_t bytes) {
    getrlimit(RLIMIT_AS, &before_);
    rlimit bound = before_;
    bound.rlim_cur = Size() + bytes;
    EXPECT_EQ(setrlimit(RLIMIT_AS, &bound), 0);
  }
  ~BoundedAddressSpace() { setrlimit(RLIMIT_AS, &before_); }
  BoundedAddressSpace(const BoundedAddressSpace&) = delete;
  BoundedAddressSpace& operator=(const BoundedAddressSpace&) = delete;

 private:
  static rlim_t Size() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * 4096;
  }
  rlimit before_{};
};

}  // namespace support
