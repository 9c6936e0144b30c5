#include "platform/linux/processes.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/commandLine.h"
#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"
#include "platform/raii.h"

extern char** environ;

namespace platform {
namespace {

// As many units as the system takes, the NUL included.
constexpr std::size_t kLongestCommandLine = 32767;

// Children that ran on when their last handle was closed. Each is a zombie from its end until somebody asks.
class Abandoned {
 public:
  void Add(pid_t child) {
    const std::lock_guard guard(lock_);
    children_.push_back(child);
  }
  void Sweep() {
    const std::lock_guard guard(lock_);
    std::erase_if(children_, [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; });
  }

 private:
  std::mutex lock_;
  std::vector<pid_t> children_;
};

Abandoned& AbandonedChildren() {
  static Abandoned& children = *new Abandoned;
  return children;
}

// One child of this process. Its number stays its own until it is reaped, which nobody but this object does.
class Child : public WatchedProcess {
 public:
  Child() = default;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (id && waitpid(*id, nullptr, WNOHANG) == 0) AbandonedChildren().Add(*id);
  }
  // Takes charge of a child that was just started. False, and the child is no more, when the host cannot watch it:
  // nobody could ever tell that it has ended. REQUIRES: nobody waits for this object yet.
  [[nodiscard]] bool Adopt(pid_t child) noexcept {
    ended = Watch(child);
    if (!ended) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
      return false;
    }
    id = child;
    return true;
  }
};

// A child's first thread ends with it, as far as anybody here can tell.
class FirstThreadObject final : public WaitableObject {
 public:
  explicit FirstThreadObject(std::shared_ptr<Child> child) noexcept : child_(std::move(child)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Thread"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return child_->ended.get(); }
  [[nodiscard]] bool TryConsume() noexcept override { return IsReadable(PollDescriptor()); }

 private:
  const std::shared_ptr<Child> child_;
};

// Both handles to a child, made ahead of it: once it runs, nothing may fail for want of memory.
struct Handles {
  explicit Handles(const std::shared_ptr<Child>& child)
      : process(ProcessHandle(handleTable::Add(std::make_shared<ProcessObject>(child)))),
        thread(ThreadHandle(handleTable::Add(std::make_shared<FirstThreadObject>(child)))) {}
  [[nodiscard]] bool complete() const noexcept { return process && thread; }
  UniqueProcess process;
  UniqueThread thread;
};

bool IsFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

// Why there is no such file: its folder may be missing, or it may itself be a folder.
DWORD ReasonForMissing(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) return ERROR_ACCESS_DENIED;
  if (errno != ENOENT) return ErrorFromHost(errno);
  const bool folderExists = stat(path.substr(0, path.rfind('/')).c_str(), &status) == 0;
  return folderExists ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

// The host's path of the program with that name, as it stands or with ".exe" behind it.
std::optional<std::string> FindProgram(std::u16string_view name) {
  const auto path = machine::HostPath(name);
  if (!path) return std::nullopt;
  if (IsFile(*path)) return path;
  const DWORD reason = ReasonForMissing(*path);
  if (IsFile(*path + ".exe")) return *path + ".exe";
  SetLastError(reason);
  return std::nullopt;
}

// What a command line starts.
struct Program {
  std::string path;
  std::u16string line;  // As the child gets it.
};

// A name without quotes may hold blanks: it ends at the first one where a program is found, and the child gets it in
// quotes if it does hold some.
std::optional<Program> ProgramOf(std::u16string_view line) {
  if (line.starts_with(u'"')) {
    auto path = FindProgram(commandLine::Split(line).front());
    return path ? std::optional(Program{std::move(*path), std::u16string(line)}) : std::nullopt;
  }
  DWORD firstError = ERROR_SUCCESS;
  for (std::size_t end = line.find_first_of(u" \t");; end = line.find_first_of(u" \t", end + 1)) {
    const std::u16string name(line.substr(0, end));
    if (auto path = FindProgram(name)) {
      const bool blanks = name.find_first_of(u" \t") != name.npos;
      return Program{std::move(*path),
                     blanks ? u'"' + name + u'"' + std::u16string(line.substr(name.size())) : std::u16string(line)};
    }
    if (firstError == ERROR_SUCCESS) firstError = GetLastError();
    if (end == line.npos) break;
  }
  SetLastError(firstError);
  return std::nullopt;
}

std::vector<std::string> HostArguments(std::u16string_view line) {
  std::vector<std::string> arguments;
  for (const std::u16string& argument : commandLine::Split(line)) arguments.push_back(machine::ToHost(argument));
  return arguments;
}

// The child's: ours, and its command line as it was spelled.
std::vector<std::string> Environment(std::u16string_view line) {
  const std::string setting = std::string(commandLine::kVariable) + "=";
  std::vector<std::string> entries{setting + machine::ToHost(line)};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (!std::string_view(*entry).starts_with(setting)) entries.emplace_back(*entry);
  }
  return entries;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// What a child keeps of its parent: the three standard streams, and nothing else that is open or blocked or ignored.
struct SpawnRules {
  SpawnRules() {
    if (posix_spawn_file_actions_init(&actions) != 0) throw std::bad_alloc();
    if (posix_spawn_file_actions_addclosefrom_np(&actions, 3) != 0) {
      posix_spawn_file_actions_destroy(&actions);
      throw std::bad_alloc();
    }
    sigset_t signals;
    posix_spawnattr_init(&attributes);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnRules(const SpawnRules&) = delete;
  SpawnRules& operator=(const SpawnRules&) = delete;
  ~SpawnRules() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

// What the host says of a process's descriptor.
pid_t NumberOf(const Descriptor& process) noexcept {
  constexpr std::string_view kField = "\nPid:\t";
  std::array<char, 512> text{};
  std::snprintf(text.data(), text.size(), "/proc/self/fdinfo/%d", process.get());
  const Descriptor file(open(text.data(), O_RDONLY | O_CLOEXEC));
  const ssize_t length = file ? read(file.get(), text.data(), text.size()) : 0;
  const std::string_view information(text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  const std::size_t field = information.find(kField);
  pid_t id = 0;
  if (field == information.npos) return id;
  std::from_chars(information.data() + field + kField.size(), information.data() + information.size(), id);
  return std::max(id, 0);
}

}  // namespace

Descriptor WatchedProcess::Watch(pid_t id) noexcept {
  Descriptor ended(static_cast<int>(syscall(SYS_pidfd_open, id, 0)));
  if (!ended) SetLastError(ErrorFromHost(errno));
  return ended;
}

bool WatchedProcess::IsOne(const Descriptor& descriptor) noexcept {
  // No signal, but all that comes ahead of it.
  return syscall(SYS_pidfd_send_signal, descriptor.get(), 0, nullptr, 0) == 0 || errno == ESRCH || errno == EPERM;
}

pid_t WatchedProcess::Id() const noexcept { return id ? *id : NumberOf(ended); }

bool StartProcess(std::u16string_view line, PROCESS_INFORMATION* information) {
  AbandonedChildren().Sweep();
  if (line.size() >= kLongestCommandLine) {
    SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return false;
  }
  const auto program = ProgramOf(line);
  if (!program) return false;
  std::vector<std::string> arguments = HostArguments(program->line);
  std::vector<std::string> environment = Environment(program->line);
  const SpawnRules rules;
  const auto child = std::make_shared<Child>();
  Handles handles(child);
  if (!handles.complete()) return false;
  pid_t id = 0;
  const int error = posix_spawn(&id, program->path.c_str(), &rules.actions, &rules.attributes,
                                Pointers(arguments).data(), Pointers(environment).data());
  if (error != 0) {
    SetLastError(ErrorFromHost(error));
    return false;
  }
  if (!child->Adopt(id)) return false;
  *information = {.hProcess = handles.process.release(),
                  .hThread = handles.thread.release(),
                  .dwProcessId = static_cast<DWORD>(id),
                  .dwThreadId = static_cast<DWORD>(id)};
  return true;
}

bool CreateProcessW(std::nullptr_t, char16_t* commandLine, std::nullptr_t, std::nullptr_t, OnlyFalse, DWORD flags,
                    std::nullptr_t, std::nullptr_t, const STARTUPINFOW* startup,
                    PROCESS_INFORMATION* information) noexcept try {
  if (FaultInjected("CreateProcessW")) return false;
  if (commandLine == nullptr || startup == nullptr || information == nullptr || (flags & ~NORMAL_PRIORITY_CLASS) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  return StartProcess(commandLine, information);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

DWORD WaitForInputIdle(ProcessHandle handle, DWORD) noexcept {
  if (FaultInjected("WaitForInputIdle")) return WAIT_FAILED;
  // No program of the host has a message queue, so there is none to wait for.
  if (handleTable::FindAs<ProcessObject>(handle.value())) SetLastError(ERROR_INVALID_HANDLE);
  return WAIT_FAILED;
}

DWORD GetCurrentProcessId() noexcept { return static_cast<DWORD>(getpid()); }

}  // namespace platform
