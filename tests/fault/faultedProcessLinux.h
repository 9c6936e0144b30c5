// The program in a process of its own, with one of its calls to the system failing.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace fault {

// What a process does not do in that time, it does not do at all.
inline constexpr int kBoundMilliseconds = 60'000;

// Which calls fail. `at` counts from 1; 0 lets all of them pass.
struct Fault {
  unsigned at = 0;
  bool fromThereOn = false;
  std::string spared;  // A call that does not fail all the same.
};

// How a process ended.
struct Ending {
  int exitCode = 0;
  bool hung = false;                     // It did not end in a time that is generous, and was killed.
  std::vector<std::string> calls;        // Those that can fail, in order; a "!" stands in front of those that did.
  std::vector<std::string> liveHandles;  // Their kinds.
  std::string errorOutput;
  [[nodiscard]] std::string FirstFailedCall() const;  // Without the "!".
};

class FaultedProcess {
 public:
  // Starts the program; `report` is a file that it writes at its end.
  FaultedProcess(const std::vector<std::string>& arguments, const Fault& fault, std::filesystem::path report);

  // Waits until the process serves its helper window, or ends; true when it serves.
  [[nodiscard]] bool AwaitServing();
  // Whether the process has ended by then.
  [[nodiscard]] bool EndsWithin(int milliseconds) const;
  [[nodiscard]] Ending AwaitEnd();

 private:
  std::filesystem::path report_;
  support::Process process_;
};

}  // namespace fault
