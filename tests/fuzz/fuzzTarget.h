// What a fuzz target is: it takes any bytes, and ends the process when something is wrong. Built with clang it is
// driven by libFuzzer, with any other compiler by replay.cpp, which runs it over the files of its corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

inline void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz
