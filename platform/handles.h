// Kernel objects: events, mutexes, threads and processes, waiting for them, and second handles to them. Sections and
// pipes have headers of their own.
//
// Threading: every call may be made from any thread. A call that fails leaves its reason in GetLastError().
// Ownership: whoever made a handle closes it with CloseHandle, once; raii.h does so by itself. An object lives until
// the last handle to it is closed; closing the handle of a running thread or process does not end it.
#pragma once

#include "platform/types.h"

namespace platform {

using EventHandle = HandleOf<struct EventKind>;
using MutexHandle = HandleOf<struct MutexKind>;
using ThreadHandle = HandleOf<struct ThreadKind>;
using ProcessHandle = HandleOf<struct ProcessKind>;
using FileHandle = HandleOf<struct FileKind>;
using SectionHandle = HandleOf<struct SectionKind>;      // sections.h
using PipeHandle = HandleOf<struct PipeKind>;            // One end of a pipe (pipes.h).
using TokenHandle = HandleOf<struct TokenKind>;          // The right to act as a user (session.h).
using NativeKeyHandle = HandleOf<struct NativeKeyKind>;  // A registry key opened by a native call (registry.h).

// A handle of any kind that CloseHandle takes.
class KernelHandle {
 public:
  constexpr KernelHandle(EventHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(MutexHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(ThreadHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(ProcessHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(FileHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(SectionHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(PipeHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(TokenHandle handle) noexcept : value_(handle.value()) {}
  constexpr KernelHandle(NativeKeyHandle handle) noexcept : value_(handle.value()) {}
  [[nodiscard]] constexpr std::uintptr_t value() const noexcept { return value_; }

 private:
  std::uintptr_t value_;
};

// A handle of a kind that can be waited for among others. A mutex is waited for alone.
class WaitableHandle {
 public:
  constexpr WaitableHandle() noexcept = default;
  constexpr WaitableHandle(EventHandle handle) noexcept : value_(handle.value()) {}
  constexpr WaitableHandle(ThreadHandle handle) noexcept : value_(handle.value()) {}
  constexpr WaitableHandle(ProcessHandle handle) noexcept : value_(handle.value()) {}
  constexpr WaitableHandle(PipeHandle handle) noexcept : value_(handle.value()) {}
  [[nodiscard]] constexpr std::uintptr_t value() const noexcept { return value_; }

 private:
  std::uintptr_t value_ = 0;
};

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 128;
inline constexpr DWORD WAIT_IO_COMPLETION = 192;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD NORMAL_PRIORITY_CLASS = 0x20;
inline constexpr DWORD STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;

// False with ERROR_INVALID_HANDLE when the value is no open handle.
bool CloseHandle(KernelHandle handle) noexcept;

// An unnamed event. An auto-reset event (`manualReset` false) is consumed by exactly one successful wait.
// Null on failure.
[[nodiscard]] EventHandle CreateEventW(std::nullptr_t security, bool manualReset, bool initialState,
                                       std::nullptr_t name) noexcept;
// The same by the ANSI name, which may be null or empty for an unnamed event. A name leads every process of the machine
// to the same event as long as somebody holds it open; GetLastError() is then ERROR_ALREADY_EXISTS, and the event keeps
// its kind and state, or else 0. Null with ERROR_INVALID_HANDLE when the name is that of an object of another kind.
[[nodiscard]] EventHandle CreateEventA(std::nullptr_t security, bool manualReset, bool initialState,
                                       const char* name) noexcept;

struct SECURITY_ATTRIBUTES {
  DWORD nLength = 24;
  void* lpSecurityDescriptor = nullptr;
  int bInheritHandle = 0;
};
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);
// The same by the wide name. `security` says who may open a new event; null: as the system sees fit. On the machine in
// a folder that is its owner, whatever `security` says.
[[nodiscard]] EventHandle CreateEventW(const SECURITY_ATTRIBUTES* security, bool manualReset, bool initialState,
                                       const char16_t* name) noexcept;
inline constexpr DWORD SYNCHRONIZE = 0x100000;
// The event of that name, good for waiting. Null with ERROR_FILE_NOT_FOUND when there is none.
[[nodiscard]] EventHandle OpenEventW(Only<SYNCHRONIZE> access, OnlyFalse inheritHandle, const char16_t* name) noexcept;
bool SetEvent(EventHandle event) noexcept;
bool ResetEvent(EventHandle event) noexcept;

// Opens or creates the machine's mutex of that name; GetLastError() is then ERROR_ALREADY_EXISTS or 0. The name exists
// as long as some process holds a handle to it, however that process ends. `initialOwner` makes the calling thread the
// owner of a mutex that this call created, and does nothing to one that existed. Null on failure.
[[nodiscard]] MutexHandle CreateMutexW(std::nullptr_t security, bool initialOwner, const char16_t* name) noexcept;
// The same by the ANSI name, which may be null or empty for an unnamed mutex.
[[nodiscard]] MutexHandle CreateMutexA(std::nullptr_t security, bool initialOwner, const char* name) noexcept;
// Makes the calling thread the owner; an owner may wait again, and then releases as often as it has waited.
// WAIT_ABANDONED makes it the owner too: the one before ended, with its thread or its process, without releasing. Else
// WAIT_TIMEOUT or WAIT_FAILED.
DWORD WaitForSingleObject(MutexHandle mutex, DWORD milliseconds) noexcept;
// False with ERROR_NOT_OWNER when the calling thread does not own the mutex.
bool ReleaseMutex(MutexHandle mutex) noexcept;

using ThreadStart = DWORD (*)(void* parameter);

// Starts a thread, whose id goes to `threadId` unless that is null. `stackSize` 0 means the default; with
// STACK_SIZE_PARAM_IS_A_RESERVATION in `flags` it is address space that the thread may use up, not memory that it takes
// at once. No other flag is supported. Null on failure.
[[nodiscard]] ThreadHandle CreateThread(std::nullptr_t security, std::size_t stackSize, ThreadStart start,
                                        void* parameter, DWORD flags, DWORD* threadId) noexcept;
// The calling thread: its id, which no other running thread has, and a handle value that means the caller wherever a
// handle of a thread is taken. It needs no close.
[[nodiscard]] DWORD GetCurrentThreadId() noexcept;
[[nodiscard]] ThreadHandle GetCurrentThread() noexcept;

inline constexpr DWORD THREAD_SET_LIMITED_INFORMATION = 1024;
// A handle to a running thread that CreateThread started in this process, good for SetThreadDescription. Null with
// ERROR_INVALID_PARAMETER when there is none with that id.
[[nodiscard]] ThreadHandle OpenThread(DWORD access, OnlyFalse inheritHandle, DWORD threadId) noexcept;

// By this exception debuggers learn a thread's name; whether one looks on or not, the thread goes on behind the call.
// No other is supported. `arguments` are the words of a THREADNAME_INFO.
inline constexpr DWORD MS_VC_EXCEPTION = 0x406D1388;
struct THREADNAME_INFO {
  DWORD dwType = 0x1000;
  const char* szName = nullptr;
  DWORD dwThreadID = 0xFFFFFFFF;  // The caller's.
  DWORD dwFlags = 0;
};
static_assert(sizeof(THREADNAME_INFO) == 3 * sizeof(std::uintptr_t));
void RaiseException(DWORD code, DWORD flags, DWORD count, const std::uintptr_t* arguments) noexcept;

// WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED. A thread and a process are signalled once they have ended. An end of a
// pipe is signalled whatever is in the pipe, so a wait for it only says that nobody is reading from it just then.
DWORD WaitForSingleObject(WaitableHandle handle, DWORD milliseconds) noexcept;
// WAIT_OBJECT_0 plus the lowest index that is signalled, WAIT_TIMEOUT or WAIT_FAILED. `count` is 1 to 64.
DWORD WaitForMultipleObjects(DWORD count, const WaitableHandle* handles, OnlyFalse waitAll,
                             DWORD milliseconds) noexcept;
// The same, or, with `waitAll`, waits until all are signalled at once; no handle may then be there twice. An alertable
// wait also ends, with WAIT_IO_COMPLETION, when calls that were queued to the thread have been made; a handle that is
// signalled comes first.
DWORD WaitForMultipleObjectsEx(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds,
                               bool alertable) noexcept;

using PAPCFUNC = void (*)(std::uintptr_t parameter);
// Queues a call that the thread makes in its next alertable wait. False for a thread that has ended.
bool QueueUserAPC(PAPCFUNC function, ThreadHandle thread, std::uintptr_t parameter) noexcept;

struct STARTUPINFOW {
  DWORD cb;
  char16_t* lpReserved;
  char16_t* lpDesktop;
  char16_t* lpTitle;
  DWORD dwX, dwY, dwXSize, dwYSize, dwXCountChars, dwYCountChars, dwFillAttribute, dwFlags;
  WORD wShowWindow, cbReserved2;
  BYTE* lpReserved2;
  std::uintptr_t hStdInput, hStdOutput, hStdError;
};
static_assert(sizeof(STARTUPINFOW) == 104);

struct PROCESS_INFORMATION {
  ProcessHandle hProcess;
  ThreadHandle hThread;
  DWORD dwProcessId;
  DWORD dwThreadId;
};

// Starts the program that the command line names: its first argument, by the system's quoting rules, a path with or
// without its ".exe". No handle is inherited. `commandLine` is writable, as the system may write to it. On success the
// caller owns both handles of `information`; on failure nothing is written to it.
bool CreateProcessW(std::nullptr_t application, char16_t* commandLine, std::nullptr_t processSecurity,
                    std::nullptr_t threadSecurity, OnlyFalse inheritHandles, DWORD flags, std::nullptr_t environment,
                    std::nullptr_t directory, const STARTUPINFOW* startup, PROCESS_INFORMATION* information) noexcept;

// Waits until the process waits for input with none pending. 0 then; WAIT_TIMEOUT; WAIT_FAILED for a process that has
// no message queue or has ended.
DWORD WaitForInputIdle(ProcessHandle process, DWORD milliseconds) noexcept;

[[nodiscard]] DWORD GetCurrentProcessId() noexcept;

// Stands for this process where DuplicateHandle or OpenProcessToken asks for a process; good for nothing else here.
// Nobody closes it.
[[nodiscard]] ProcessHandle GetCurrentProcess() noexcept;

inline constexpr DWORD DUPLICATE_CLOSE_SOURCE = 1;
inline constexpr DWORD DUPLICATE_SAME_ACCESS = 2;

// What the form below does, for a handle of any kind.
[[nodiscard]] bool DuplicateToValue(ProcessHandle sourceProcess, KernelHandle source, ProcessHandle targetProcess,
                                    std::uintptr_t* target) noexcept;

// A second, independent handle to the same object: each is closed for itself. Of the handle that stands for this
// process, or for the calling thread, a real one. Null, with false, on failure. ERROR_INVALID_HANDLE: the source is no
// open handle, or one of the processes no process. On the machine in a folder both processes must be this one
// (ERROR_ACCESS_DENIED): the host lets nobody reach into another process's handles.
template <class Kind>
bool DuplicateHandle(ProcessHandle sourceProcess, HandleOf<Kind> source, ProcessHandle targetProcess,
                     HandleOf<Kind>* target, Only<DWORD{0}>, OnlyFalse, Only<DUPLICATE_SAME_ACCESS>) noexcept {
  std::uintptr_t value = 0;
  const bool done = DuplicateToValue(sourceProcess, source, targetProcess, &value);
  *target = HandleOf<Kind>(done ? value : 0);
  return done;
}

// Closes a handle of the source process. ERROR_INVALID_HANDLE when that process has no such handle open, or is no
// process. On the machine in a folder another process's handle stays open, with ERROR_ACCESS_DENIED: as above.
bool DuplicateHandle(ProcessHandle sourceProcess, KernelHandle source, std::nullptr_t targetProcess,
                     std::nullptr_t target, Only<DWORD{0}>, OnlyFalse, Only<DUPLICATE_CLOSE_SOURCE>) noexcept;

}  // namespace platform
