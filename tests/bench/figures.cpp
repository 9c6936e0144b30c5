#include "tests/bench/figures.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {

Figures FiguresOf(std::vector<double> measurements) {
  std::ranges::sort(measurements);
  return {.median = measurements[measurements.size() / 2], .least = measurements.front(), .most = measurements.back()};
}

unsigned CountFrom(int argc, char** argv, const std::string& option, unsigned otherwise) {
  if (argc == 1) return otherwise;
  unsigned count = 0;
  if (argc == 3 && argv[1] == option) {
    const char* const end = argv[2] + std::strlen(argv[2]);
    const auto [stop, error] = std::from_chars(argv[2], end, count);
    if (error == std::errc() && stop == end && count > 0) return count;
  }
  std::fprintf(stderr, "usage: %s [%s COUNT]\n", argv[0], option.c_str());
  std::exit(2);
}

}  // namespace bench
