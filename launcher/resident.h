// The resident helper, from its start to its end.
#pragma once

namespace launcher {

// Takes the machine's mutex, brings registrations and extension data up to date, and serves the helper window until
// told to end. Returns 0, also when another resident already runs.
int RunResident();

}  // namespace launcher
