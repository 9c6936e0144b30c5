// Programs that tests start through the platform's own calls.
#pragma once

#include <string>
#include <vector>

#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/support/machine.h"

namespace programs {

// A copy of this test program in the machine's test folder; its path on the machine.
std::u16string Put(const support::Machine& machine, std::u16string_view name);

// The arguments with which the copy writes its own command line to the file that RecordIn named. What stands behind
// them on the command line is up to the test.
inline constexpr std::u16string_view kRecords = u" --child=RecordsItsCommandLine ";
void RecordIn(const support::Machine& machine);
// What was recorded, once there is something; waits for it. Removes the record.
std::u16string Recorded(const support::Machine& machine);
// The arguments with which it does nothing at all.
inline constexpr std::u16string_view kEndsAtOnce = u" --child=EndsAtOnce ";

struct Started {
  platform::UniqueProcess process;
  platform::UniqueThread thread;
  platform::DWORD id = 0;
  explicit operator bool() const { return static_cast<bool>(process); }
};

// Nothing, with the last error set, when that fails.
Started Start(std::u16string line);
// The error of a start that fails, 0 if it does not.
platform::DWORD ErrorOfStart(const std::u16string& line);

// Removes the program; waits until it does not run any more, where that is in the way.
void Remove(const support::Machine& machine, std::u16string_view path);

}  // namespace programs
