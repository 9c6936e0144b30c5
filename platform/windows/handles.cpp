#include "platform/handles.h"

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

// A waitable handle is nothing but the system's handle, so an array of them is passed as it stands.
static_assert(sizeof(WaitableHandle) == sizeof(::HANDLE));

}  // namespace

bool CloseHandle(KernelHandle handle) noexcept { return ::CloseHandle(Native(handle)) != 0; }

EventHandle CreateEventW(std::nullptr_t, bool manualReset, bool initialState, std::nullptr_t) noexcept {
  return Ours<EventHandle>(::CreateEventW(nullptr, manualReset, initialState, nullptr));
}

bool SetEvent(EventHandle event) noexcept { return ::SetEvent(Native(event)) != 0; }

bool ResetEvent(EventHandle event) noexcept { return ::ResetEvent(Native(event)) != 0; }

MutexHandle CreateMutexW(std::nullptr_t, bool initialOwner, const char16_t* name) noexcept {
  return Ours<MutexHandle>(::CreateMutexW(nullptr, initialOwner, reinterpret_cast<const wchar_t*>(name)));
}

bool ReleaseMutex(MutexHandle mutex) noexcept { return ::ReleaseMutex(Native(mutex)) != 0; }

ThreadHandle CreateThread(std::nullptr_t, std::size_t stackSize, ThreadStart start, void* parameter, DWORD flags,
                          std::nullptr_t) noexcept {
  // Both types are the same to the x64 calling convention; only the name of the 32-bit result differs.
  const auto nativeStart = reinterpret_cast<::LPTHREAD_START_ROUTINE>(reinterpret_cast<void (*)()>(start));
  return Ours<ThreadHandle>(::CreateThread(nullptr, stackSize, nativeStart, parameter, flags, nullptr));
}

DWORD WaitForSingleObject(WaitableHandle handle, DWORD milliseconds) noexcept {
  return ::WaitForSingleObject(Native(handle), milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const WaitableHandle* handles, OnlyFalse, DWORD milliseconds) noexcept {
  return ::WaitForMultipleObjects(count, reinterpret_cast<const ::HANDLE*>(handles), FALSE, milliseconds);
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
