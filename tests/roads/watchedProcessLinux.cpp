#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/roads/watchedProcess.h"

namespace roads {

const int kAbnormalEnd = 128 + SIGABRT;
const int kRepetitions = 20;

bool EndsWithin(std::uint32_t processId, std::uint32_t milliseconds) {
  const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, processId, 0));
  if (descriptor < 0) return true;
  pollfd state{.fd = descriptor, .events = POLLIN, .revents = 0};
  const bool ended = poll(&state, 1, static_cast<int>(milliseconds)) > 0;
  close(descriptor);
  return ended;
}

void Suspend(const support::Process& process) { kill(static_cast<pid_t>(process.Id()), SIGSTOP); }
void Resume(const support::Process& process) { kill(static_cast<pid_t>(process.Id()), SIGCONT); }

MessageBox AwaitMessageBox(support::Process& process) {
  process.Wait();
  const std::string line = process.ErrorOutput();
  const std::size_t end = line.rfind(": ");
  if (end == std::string::npos) {
    ADD_FAILURE() << "no message was shown: '" << line << "'";
    return {};
  }
  return {.caption = line.substr(0, end), .text = line.substr(end + 2)};
}

}  // namespace roads
