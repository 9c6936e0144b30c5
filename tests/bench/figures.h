// What the benchmarks print: the middle and the ends of a series of measurements.
#pragma once

#include <string>
#include <vector>

namespace bench {

struct Figures {
  double median = 0;
  double least = 0;
  double most = 0;
};

// REQUIRES: at least one measurement.
[[nodiscard]] Figures FiguresOf(std::vector<double> measurements);

// The number behind the option's name on the command line ("--runs 200"); `otherwise` when it is not there. Ends the
// program, with a line that says how it is used, for anything else on the command line.
[[nodiscard]] unsigned CountFrom(int argc, char** argv, const std::string& option, unsigned otherwise);

}  // namespace bench
