#include "platform/linux/passedObjects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/error.h"
#include "platform/linux/events.h"
#include "platform/linux/pipeObjects.h"
#include "platform/linux/processes.h"
#include "platform/linux/sectionObjects.h"

namespace platform::passedObjects {
namespace {

bool IsFifo(const Descriptor& descriptor, int access) {
  struct stat status {};
  return fstat(descriptor.get(), &status) == 0 && S_ISFIFO(status.st_mode) &&
         (fcntl(descriptor.get(), F_GETFL) & O_ACCMODE) == access;
}

// A section that can still shrink would end whoever has it mapped.
bool IsSection(const Descriptor& descriptor) {
  struct stat status {};
  const int seals = fcntl(descriptor.get(), F_GET_SEALS);
  return seals >= 0 && (seals & kSectionSeals) == kSectionSeals &&
         (seals & (F_SEAL_WRITE | F_SEAL_FUTURE_WRITE)) == 0 &&
         (fcntl(descriptor.get(), F_GETFL) & O_ACCMODE) == O_RDWR && fstat(descriptor.get(), &status) == 0 &&
         status.st_size > 0;
}

// One of the host's files that have no name, and whose reads take eight bytes at least: they say what there was and
// leave nothing of it behind. No question under /proc, each of which takes as long as ten of these.
bool IsCounter(const Descriptor& descriptor) {
  struct stat status {};
  std::array<char, 4> tooFew;
  return fstat(descriptor.get(), &status) == 0 && (status.st_mode & S_IFMT) == 0 &&
         read(descriptor.get(), tooFew.data(), tooFew.size()) < 0 && errno == EINVAL;
}

// One that blocks would hold up whoever looks at it.
bool IsEvent(const Descriptor& descriptor) {
  const int flags = fcntl(descriptor.get(), F_GETFL);
  return flags >= 0 && (flags & O_NONBLOCK) != 0 && (IsCounter(descriptor) || IsFifo(descriptor, O_RDWR));
}

std::shared_ptr<KernelObject> ReceiveProcess(Descriptor descriptor) {
  if (!WatchedProcess::IsOne(descriptor)) return nullptr;
  auto process = std::make_shared<WatchedProcess>();
  process->ended = std::move(descriptor);
  return std::make_shared<ProcessObject>(std::move(process));
}

}  // namespace

std::optional<Passed> Pass(std::uintptr_t handle) {
  auto object = FindObject(handle);
  if (!object) return std::nullopt;
  if (const auto* section = dynamic_cast<const Section*>(object.get())) {
    return Passed{Kind::Section, std::move(object), section->Get()};
  }
  if (const auto* event = dynamic_cast<const Event*>(object.get())) {
    const Kind kind = event->IsManualReset() ? Kind::ManualResetEvent : Kind::AutoResetEvent;
    return Passed{kind, std::move(object), event->PollDescriptor()};
  }
  if (const auto* process = dynamic_cast<const ProcessObject*>(object.get())) {
    return Passed{Kind::Process, std::move(object), process->PollDescriptor()};
  }
  if (const auto* pipe = dynamic_cast<const PipeEnd*>(object.get())) {
    return Passed{Kind::Pipe, std::move(object), pipe->Get()};
  }
  SetLastError(ERROR_INVALID_HANDLE);
  return std::nullopt;
}

std::shared_ptr<KernelObject> Receive(Kind kind, Descriptor descriptor) {
  switch (kind) {
    case Kind::None: break;
    case Kind::Section:
      if (IsSection(descriptor)) return std::make_shared<Section>(std::move(descriptor));
      break;
    case Kind::AutoResetEvent:
    case Kind::ManualResetEvent:
      if (IsEvent(descriptor)) return std::make_shared<Event>(std::move(descriptor), kind == Kind::ManualResetEvent);
      break;
    case Kind::Process: return ReceiveProcess(std::move(descriptor));
    case Kind::Pipe:
      if (IsFifo(descriptor, O_RDONLY)) return PipeEnd::Of(std::move(descriptor));
      break;
  }
  return nullptr;
}

}  // namespace platform::passedObjects
