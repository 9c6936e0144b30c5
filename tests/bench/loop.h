// What one round of a loop takes, for bodies that take a few nanoseconds.
#pragma once

#include <chrono>
#include <cstdint>

namespace bench {

// The body is given a number that the compiler knows nothing of, so that every round is made as it is written.
template <class Body>
double NanosecondsEach(int rounds, const Body& body) {
  using Clock = std::chrono::steady_clock;
  std::uint64_t number = 1;
  const Clock::time_point began = Clock::now();
  for (int round = 0; round < rounds; ++round) {
    asm volatile("" : "+r"(number) : : "memory");
    body(number);
  }
  return std::chrono::duration<double, std::nano>(Clock::now() - began).count() / rounds;
}

}  // namespace bench
