#include "platform/pipes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"
#include "platform/linux/pipeObjects.h"
#include "platform/raii.h"

namespace platform {
namespace {

// The host refuses a read from a write end, and a write to a read end, as if the descriptor were closed.
DWORD ErrorOfTransfer(int hostError) noexcept {
  if (hostError == EBADF) return ERROR_ACCESS_DENIED;
  return hostError == EPIPE ? ERROR_NO_DATA : ErrorFromHost(hostError);
}

// Keeps back the signal with which the host ends a process that writes to a broken pipe.
class NoPipeSignal {
 public:
  NoPipeSignal() noexcept {
    sigemptyset(&pipeSignal_);
    sigaddset(&pipeSignal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal_, &before_);
  }
  NoPipeSignal(const NoPipeSignal&) = delete;
  NoPipeSignal& operator=(const NoPipeSignal&) = delete;
  ~NoPipeSignal() {
    const timespec now{};
    sigtimedwait(&pipeSignal_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipeSignal_{};
  sigset_t before_{};
};

PipeHandle AddEnd(Descriptor end) {
  auto object = PipeEnd::Of(std::move(end));
  return PipeHandle(object ? handleTable::Add(std::move(object)) : 0);
}

}  // namespace

std::shared_ptr<PipeEnd> PipeEnd::Of(Descriptor end) {
  Descriptor signalled(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!signalled) {
    SetLastError(ErrorFromHost(errno));
    return nullptr;
  }
  return std::make_shared<PipeEnd>(std::move(end), std::move(signalled));
}

bool CreatePipe(PipeHandle* readEnd, PipeHandle* writeEnd, std::nullptr_t, Only<DWORD{0}>) noexcept try {
  if (FaultInjected("CreatePipe")) return false;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    SetLastError(ErrorFromHost(errno));
    return false;
  }
  Descriptor reads(ends[0]);
  Descriptor writes(ends[1]);
  UniquePipe reader(AddEnd(std::move(reads)));
  UniquePipe writer(reader ? AddEnd(std::move(writes)) : PipeHandle());
  if (!writer) return false;
  *readEnd = reader.release();
  *writeEnd = writer.release();
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

bool ReadFile(PipeHandle handle, void* data, DWORD size, DWORD* count, std::nullptr_t) noexcept {
  *count = 0;
  if (FaultInjected("ReadFile")) return false;
  const auto end = handleTable::FindAs<PipeEnd>(handle.value());
  if (!end) return false;
  ssize_t got = 0;
  do {
    got = read(end->Get(), data, size);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) {
    SetLastError(got == 0 ? ERROR_BROKEN_PIPE : ErrorOfTransfer(errno));
    return false;
  }
  *count = static_cast<DWORD>(got);
  return true;
}

bool WriteFile(PipeHandle handle, const void* data, DWORD size, DWORD* count, std::nullptr_t) noexcept {
  *count = 0;
  if (FaultInjected("WriteFile")) return false;
  const auto end = handleTable::FindAs<PipeEnd>(handle.value());
  if (!end) return false;
  const NoPipeSignal guard;
  while (*count < size) {
    const ssize_t gone = write(end->Get(), static_cast<const char*>(data) + *count, size - *count);
    if (gone < 0 && errno == EINTR) continue;
    if (gone < 0) {
      SetLastError(ErrorOfTransfer(errno));
      return false;
    }
    *count += static_cast<DWORD>(gone);
  }
  return true;
}

}  // namespace platform
