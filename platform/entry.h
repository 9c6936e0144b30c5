// Where the system hands over to the program. The platform's entry calls this once, on the main thread.
#pragma once

namespace platform {

// Supplied by the program; returns the process's exit code.
int ProgramMain();

}  // namespace platform
