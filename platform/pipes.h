// Anonymous pipes: bytes that go from one end to the other in the order in which they were written.
//
// Threading: every call may be made from any thread. A call that fails leaves its reason in GetLastError().
#pragma once

#include "platform/handles.h"
#include "platform/types.h"

namespace platform {

// A pipe of the system's own choice of size. The caller owns both ends; on failure nothing is written to either. The
// pipe is broken once all handles to its other end are closed, however their processes ended.
bool CreatePipe(PipeHandle* readEnd, PipeHandle* writeEnd, std::nullptr_t security, Only<DWORD{0}> size) noexcept;

// Sleeps until there is something to read, and takes as much of it as there is room for, at least one byte. `size` is
// not 0. False on failure: ERROR_BROKEN_PIPE when nothing is left and nobody has the write end any more,
// ERROR_ACCESS_DENIED for a write end. `*count` tells how many bytes came.
bool ReadFile(PipeHandle readEnd, void* data, DWORD size, DWORD* count, std::nullptr_t overlapped) noexcept;

// Sleeps until all is in the pipe. False on failure: ERROR_NO_DATA when nobody has the read end any more,
// ERROR_ACCESS_DENIED for a read end. `*count` tells how many bytes went.
bool WriteFile(PipeHandle writeEnd, const void* data, DWORD size, DWORD* count, std::nullptr_t overlapped) noexcept;

}  // namespace platform
