// What a test build of this layer lets tests do: make calls fail, move the clock, look at the live handles.
// For tests alone; the product's build has none of it, but for the list of handles.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/types.h"

namespace platform::test {

// From now on calls that can fail are counted, starting at 1. Call `failAt` fails with `error`, and, when `persistent`,
// every call behind it too. 0 only counts.
void ArmFaults(unsigned failAt, bool persistent, DWORD error);
// From now on each call of these names fails with `error`, and no other.
void ArmFaultsOf(std::vector<std::string> calls, DWORD error);
inline void ArmFaultsOf(const char* call, DWORD error) { ArmFaultsOf(std::vector<std::string>{call}, error); }
void DisarmFaults();
// The names of the calls counted since ArmFaults, in order; the faulted ones bear a "!" in front.
[[nodiscard]] std::vector<std::string> CountedCalls();

// A process started with LUMENAR_FAIL_AT in its environment ("7" once, "7+" from there on, "0" counts) arms itself
// before its first call. The call that LUMENAR_FAIL_SPARES names is counted, but does not fail. When the process ends
// by exit or by return from its entry, it writes its counted calls, an empty line, and the kinds of its live handles,
// one a line, to the file that LUMENAR_FAULT_REPORT names. It waits at least a minute for the answer to a message.

// Sets the local time; nothing gives the real clock back.
void SetLocalTime(std::optional<SYSTEMTIME> time);

// Sessions that exist beside the machine's own from now on, with their connect states. Each has the same user.
void SetOtherSessions(std::map<DWORD, DWORD> stateBySession);

// The kinds of the handles that are open in this process.
[[nodiscard]] std::vector<std::string> LiveHandles();

}  // namespace platform::test
