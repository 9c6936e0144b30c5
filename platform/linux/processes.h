// Processes: the object behind a handle, and starting them, for the calls of this layer that do.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string_view>

#include "platform/handles.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/waitable.h"

namespace platform {

// A process of the host that this one watches.
struct WatchedProcess {
  // Null, with the last error set, when the host cannot watch it.
  [[nodiscard]] static Descriptor Watch(pid_t id) noexcept;
  // Whether it is the descriptor of a process, running or not.
  [[nodiscard]] static bool IsOne(const Descriptor& descriptor) noexcept;

  // Its number; 0 when the host has none for it any more.
  [[nodiscard]] pid_t Id() const noexcept;

  std::optional<pid_t> id;  // If it is not known, the host is asked when it is needed.
  Descriptor ended;         // A pidfd, readable once the process has ended.
};

// Signalled once its process has ended.
class ProcessObject final : public WaitableObject {
 public:
  explicit ProcessObject(std::shared_ptr<const WatchedProcess> process) noexcept : process_(std::move(process)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Process"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return process_->ended.get(); }
  [[nodiscard]] bool TryConsume() noexcept override { return IsReadable(PollDescriptor()); }
  [[nodiscard]] pid_t Id() const noexcept { return process_->Id(); }

 private:
  const std::shared_ptr<const WatchedProcess> process_;
};

// The object behind a handle, or behind a value that stands for this process or for the calling thread. Null, with the
// last error set, when there is none. May throw std::bad_alloc.
[[nodiscard]] std::shared_ptr<KernelObject> FindObject(std::uintptr_t value);

// What CreateProcessW does, without the tests' faults. May throw std::bad_alloc.
[[nodiscard]] bool StartProcess(std::u16string_view commandLine, PROCESS_INFORMATION* information);

}  // namespace platform
