#include "platform/handles.h"
#include "platform/windows/waits.h"
#if LUMENAR_TEST_HOOKS
#include "platform/windows/winePool.h"
#endif

#include <windows.h>

namespace platform {
namespace {

template <class Handle>
::HANDLE Native(Handle handle) {
  return reinterpret_cast<::HANDLE>(handle.value());
}

template <class Handle>
Handle Ours(::HANDLE handle) {
  return Handle(reinterpret_cast<std::uintptr_t>(handle));
}

::LONG CALLBACK GoOnBehindAName(::EXCEPTION_POINTERS* exception) {
  return exception->ExceptionRecord->ExceptionCode == MS_VC_EXCEPTION ? EXCEPTION_CONTINUE_EXECUTION
                                                                      : EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

bool CloseHandle(KernelHandle handle) noexcept {
#if LUMENAR_TEST_HOOKS
  if (test::LayToRest(handle)) return true;
#endif
  return ::CloseHandle(Native(handle)) != 0;
}

EventHandle CreateEventW(std::nullptr_t, bool manualReset, bool initialState, std::nullptr_t) noexcept {
  return Ours<EventHandle>(::CreateEventW(nullptr, manualReset, initialState, nullptr));
}

EventHandle CreateEventA(std::nullptr_t, bool manualReset, bool initialState, const char* name) noexcept {
  return Ours<EventHandle>(::CreateEventA(nullptr, manualReset, initialState, name));
}

EventHandle CreateEventW(const SECURITY_ATTRIBUTES* security, bool manualReset, bool initialState,
                         const char16_t* name) noexcept {
  ::SECURITY_ATTRIBUTES native{};
  static_assert(sizeof native == sizeof *security);
  if (security != nullptr) {
    native.nLength = security->nLength;
    native.lpSecurityDescriptor = security->lpSecurityDescriptor;
    native.bInheritHandle = security->bInheritHandle;
  }
  return Ours<EventHandle>(::CreateEventW(security != nullptr ? &native : nullptr, manualReset, initialState,
                                          reinterpret_cast<const wchar_t*>(name)));
}

EventHandle OpenEventW(Only<DWORD{SYNCHRONIZE}>, OnlyFalse, const char16_t* name) noexcept {
  return Ours<EventHandle>(::OpenEventW(SYNCHRONIZE, FALSE, reinterpret_cast<const wchar_t*>(name)));
}

bool SetEvent(EventHandle event) noexcept { return ::SetEvent(Native(event)) != 0; }

bool ResetEvent(EventHandle event) noexcept { return ::ResetEvent(Native(event)) != 0; }

MutexHandle CreateMutexW(std::nullptr_t, bool initialOwner, const char16_t* name) noexcept {
  return Ours<MutexHandle>(::CreateMutexW(nullptr, initialOwner, reinterpret_cast<const wchar_t*>(name)));
}

MutexHandle CreateMutexA(std::nullptr_t, bool initialOwner, const char* name) noexcept {
  return Ours<MutexHandle>(::CreateMutexA(nullptr, initialOwner, name));
}

DWORD WaitForSingleObject(MutexHandle mutex, DWORD milliseconds) noexcept {
  const ::HANDLE handle = Native(mutex);
  return WaitFor(1, &handle, false, milliseconds, false);
}

bool ReleaseMutex(MutexHandle mutex) noexcept { return ::ReleaseMutex(Native(mutex)) != 0; }

ThreadHandle CreateThread(std::nullptr_t, std::size_t stackSize, ThreadStart start, void* parameter, DWORD flags,
                          DWORD* threadId) noexcept {
  // Both types are the same to the x64 calling convention; only the name of the 32-bit result differs.
  const auto nativeStart = reinterpret_cast<::LPTHREAD_START_ROUTINE>(reinterpret_cast<void (*)()>(start));
  ::DWORD id = 0;
  const auto thread = Ours<ThreadHandle>(::CreateThread(nullptr, stackSize, nativeStart, parameter, flags, &id));
  if (thread && threadId != nullptr) *threadId = id;
  return thread;
}

DWORD GetCurrentThreadId() noexcept { return ::GetCurrentThreadId(); }

ThreadHandle GetCurrentThread() noexcept { return Ours<ThreadHandle>(::GetCurrentThread()); }

ThreadHandle OpenThread(DWORD access, OnlyFalse, DWORD threadId) noexcept {
  return Ours<ThreadHandle>(::OpenThread(access, FALSE, threadId));
}

// A debugger has had its look when the handler is asked.
void RaiseException(DWORD code, DWORD flags, DWORD count, const std::uintptr_t* arguments) noexcept {
  if (code != MS_VC_EXCEPTION) return;
  void* const handler = ::AddVectoredExceptionHandler(1, &GoOnBehindAName);
  ::RaiseException(code, flags, count, reinterpret_cast<const ::ULONG_PTR*>(arguments));
  ::RemoveVectoredExceptionHandler(handler);
}

bool QueueUserAPC(PAPCFUNC function, ThreadHandle thread, std::uintptr_t parameter) noexcept {
  static_assert(sizeof(std::uintptr_t) == sizeof(::ULONG_PTR));
  return ::QueueUserAPC(reinterpret_cast<::PAPCFUNC>(function), Native(thread), parameter) != 0;
}

DWORD WaitForSingleObject(WaitableHandle handle, DWORD milliseconds) noexcept {
  return WaitFor(1, NativeArray(&handle), false, milliseconds, false);
}

DWORD WaitForMultipleObjects(DWORD count, const WaitableHandle* handles, OnlyFalse, DWORD milliseconds) noexcept {
  return WaitFor(count, NativeArray(handles), false, milliseconds, false);
}

DWORD WaitForMultipleObjectsEx(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds,
                               bool alertable) noexcept {
  return WaitFor(count, NativeArray(handles), waitAll, milliseconds, alertable);
}

ProcessHandle GetCurrentProcess() noexcept { return Ours<ProcessHandle>(::GetCurrentProcess()); }

bool DuplicateToValue(ProcessHandle sourceProcess, KernelHandle source, ProcessHandle targetProcess,
                      std::uintptr_t* target) noexcept {
  ::HANDLE duplicate = nullptr;
  const bool done = ::DuplicateHandle(Native(sourceProcess), Native(source), Native(targetProcess), &duplicate, 0,
                                      FALSE, DUPLICATE_SAME_ACCESS) != 0;
  *target = reinterpret_cast<std::uintptr_t>(duplicate);
  return done;
}

bool DuplicateHandle(ProcessHandle sourceProcess, KernelHandle source, std::nullptr_t, std::nullptr_t, Only<DWORD{0}>,
                     OnlyFalse, Only<DWORD{DUPLICATE_CLOSE_SOURCE}>) noexcept {
  return ::DuplicateHandle(Native(sourceProcess), Native(source), nullptr, nullptr, 0, FALSE, DUPLICATE_CLOSE_SOURCE) !=
         0;
}

}  // namespace platform
