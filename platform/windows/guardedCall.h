// A call that the RPC runtime may end by raising an exception of the system's own kind, which this compiler does not
// know.
#pragma once

namespace platform {

// Calls `function`. 0 when it returns; else the code of the exception that ended it, with everything below it unwound.
// What stands for a fault of the program itself passes through. Nothing with a destructor may be alive in `function`.
extern "C" unsigned GuardedCall(void (*function)(void*), void* argument);

}  // namespace platform
