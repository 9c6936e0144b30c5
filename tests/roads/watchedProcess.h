// What tests do to a process of the program from outside, where the targets differ.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/process.h"

namespace roads {

// Waits until the process has ended, at most so long. False when it still runs.
[[nodiscard]] bool EndsWithin(std::uint32_t processId, std::uint32_t milliseconds);
[[nodiscard]] inline bool EndsWithin(const support::Process& process, std::uint32_t milliseconds) {
  return EndsWithin(process.Id(), milliseconds);
}

// How long to wait between one look at what nothing tells of and the next, in milliseconds.
inline constexpr std::uint32_t kBetweenLooks = 5;

// The process stands still until it is resumed.
void Suspend(const support::Process& process);
void Resume(const support::Process& process);

struct MessageBox {
  std::string caption;
  std::string text;
};
// Waits for the process's message box, reads it and closes it. On a machine without a display, where the box goes to
// standard error, waits for the process's end. Fails the test when there is none.
[[nodiscard]] MessageBox AwaitMessageBox(support::Process& process);

// The exit code of a process that has ended abnormally.
extern const int kAbnormalEnd;

// How often to repeat what only shows now and then: a process costs much more on one target than on the other.
extern const int kRepetitions;

}  // namespace roads
