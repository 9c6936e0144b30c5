#include "tests/fault/faultedProcessLinux.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "launcher/handOff.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/windowSocket.h"
#include "platform/window.h"

namespace fault {
namespace {

using platform::Descriptor;

std::string Program() { return support::Beside("helper-with-faults"); }

std::string Setting(const Fault& fault) { return std::to_string(fault.at) + (fault.fromThereOn ? "+" : ""); }

// The thread sanitizer lets each process sleep for a second at its end, which is longer than it lives.
std::string ThreadSanitizerOptions() {
  const char* const options = std::getenv("TSAN_OPTIONS");
  return (options != nullptr ? options + std::string(":") : "") + "atexit_sleep_ms=0";
}

Descriptor EndOf(std::uint32_t process) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0)));
}

void ReadReport(const std::filesystem::path& path, Ending& ending) {
  std::ifstream report(path);
  std::string line;
  while (std::getline(report, line) && !line.empty()) ending.calls.push_back(line);
  while (std::getline(report, line)) ending.liveHandles.push_back(line);
}

platform::HWND HelperWindowOf(std::uint32_t process) {
  const platform::HWND window = platform::FindWindowW(handOff::kHelperWindowClass, nullptr);
  platform::DWORD owner = 0;
  if (window) platform::GetWindowThreadProcessId(window, &owner);
  return owner == process ? window : platform::HWND();
}

// A window answers from the message loop alone; it may be gone before that, when a later step of the start fails.
bool Answers(platform::HWND window) {
  return platform::SendMessageTimeoutW(window, platform::WM_NULL, 0, 0, platform::SMTO_ABORTIFHUNG, kBoundMilliseconds,
                                       nullptr) != 0;
}

// Tells of the windows that come and go on this machine. One for all processes: to close such a descriptor takes the
// kernel longer than a process lives.
const Descriptor& WindowChanges() {
  static const Descriptor changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  inotify_add_watch(changes.get(), platform::windowSocket::Folder().c_str(), IN_CREATE | IN_MOVED_TO);
  return changes;
}

bool IsFailed(const std::string& call) { return call.starts_with('!'); }

}  // namespace

std::string Ending::FirstFailedCall() const {
  const auto failed = std::ranges::find_if(calls, IsFailed);
  return failed == calls.end() ? std::string() : failed->substr(1);
}

FaultedProcess::FaultedProcess(const std::vector<std::string>& arguments, const Fault& fault,
                               std::filesystem::path report)
    : report_((std::filesystem::remove(report), std::move(report))),
      process_({.program = Program(),
                .arguments = arguments,
                .environment = {{"LUMENAR_FAIL_AT", Setting(fault)},
                                {"LUMENAR_FAIL_SPARES", fault.spared},
                                {"LUMENAR_FAULT_REPORT", report_.string()},
                                {"TSAN_OPTIONS", ThreadSanitizerOptions()}}}) {}

bool FaultedProcess::AwaitServing() {
  const Descriptor ended = EndOf(process_.Id());
  const Descriptor& changes = WindowChanges();
  while (true) {
    if (const platform::HWND window = HelperWindowOf(process_.Id())) return Answers(window);
    pollfd events[] = {{.fd = ended.get(), .events = POLLIN, .revents = 0},
                       {.fd = changes.get(), .events = POLLIN, .revents = 0}};
    if (poll(events, 2, kBoundMilliseconds) <= 0 || events[0].revents != 0) return false;
    char drained[4096];
    while (read(changes.get(), drained, sizeof drained) > 0) {
    }
  }
}

bool FaultedProcess::EndsWithin(int milliseconds) const {
  const Descriptor ended = EndOf(process_.Id());
  pollfd event{.fd = ended.get(), .events = POLLIN, .revents = 0};
  return poll(&event, 1, milliseconds) != 0;
}

Ending FaultedProcess::AwaitEnd() {
  Ending ending;
  ending.hung = !EndsWithin(kBoundMilliseconds);
  if (ending.hung) process_.Kill();
  ending.exitCode = process_.Wait();
  ending.errorOutput = process_.ErrorOutput();
  ReadReport(report_, ending);
  return ending;
}

}  // namespace fault
