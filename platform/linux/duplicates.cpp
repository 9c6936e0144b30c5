#include <unistd.h>

#include <memory>
#include <new>

#include "platform/linux/faults.h"
#include "platform/linux/processes.h"
#include "platform/linux/threadObjects.h"

namespace platform {
namespace {

// Never a slot of the handle table: those are multiples of 4.
constexpr ProcessHandle kThisProcess{~std::uintptr_t{0}};

// Whether the handles in question are ours. False, with the last error set, for those of another process.
bool IsThisProcess(ProcessHandle handle) noexcept {
  if (handle == kThisProcess) return true;
  const auto process = handleTable::FindAs<ProcessObject>(handle.value());
  if (!process) return false;
  const bool ours = process->Id() == getpid();
  if (!ours) SetLastError(ERROR_ACCESS_DENIED);
  return ours;
}

// Null, with the last error set, when the host cannot watch this process. May throw std::bad_alloc.
std::shared_ptr<KernelObject> OpenThisProcess() {
  const auto process = std::make_shared<WatchedProcess>();
  process->id = getpid();
  process->ended = WatchedProcess::Watch(*process->id);
  return process->ended ? std::make_shared<ProcessObject>(process) : nullptr;
}

}  // namespace

std::shared_ptr<KernelObject> FindObject(std::uintptr_t value) {
  if (value == kThisProcess.value()) return OpenThisProcess();
  if (value == kCurrentThread.value()) return FindThread(kCurrentThread);
  return handleTable::Find(value);
}

ProcessHandle GetCurrentProcess() noexcept { return kThisProcess; }

bool DuplicateToValue(ProcessHandle sourceProcess, KernelHandle source, ProcessHandle targetProcess,
                      std::uintptr_t* target) noexcept try {
  *target = 0;
  if (FaultInjected("DuplicateHandle")) return false;
  if (!IsThisProcess(sourceProcess) || !IsThisProcess(targetProcess)) return false;
  auto object = FindObject(source.value());
  if (object) *target = handleTable::Add(std::move(object));
  return *target != 0;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

bool DuplicateHandle(ProcessHandle sourceProcess, KernelHandle source, std::nullptr_t, std::nullptr_t, Only<DWORD{0}>,
                     OnlyFalse, Only<DUPLICATE_CLOSE_SOURCE>) noexcept {
  if (FaultInjected("DuplicateHandle")) return false;
  return IsThisProcess(sourceProcess) && handleTable::Close(source.value());
}

}  // namespace platform
