#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/support/process.h"

extern char** environ;

namespace support {
namespace {

[[noreturn]] void Die(const char* what) {
  std::perror(what);
  std::abort();
}

std::vector<std::string> MergedEnvironment(const std::vector<std::pair<std::string, std::string>>& changes) {
  std::vector<std::string> entries;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    bool changed = false;
    for (const auto& [name, value] : changes) changed = changed || text.starts_with(name + "=");
    if (!changed) entries.push_back(text);
  }
  for (const auto& [name, value] : changes) entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

struct Process::State {
  pid_t pid = 0;
  int input = -1;
  int output = -1;
  int error = -1;  // An unlinked file: the process never blocks on it.
  std::string buffered;
  std::optional<int> exitCode;
};

Process::Process(const StartOptions& options) : state_(std::make_unique<State>()) {
  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) Die("pipe2");
  char path[] = "/tmp/lumenar-stderr-XXXXXX";
  state_->error = mkostemp(path, O_CLOEXEC);
  if (state_->error < 0) Die("mkostemp");
  unlink(path);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, state_->error, 2);
  std::vector<std::string> arguments = options.arguments;
  arguments.insert(arguments.begin(), options.program);
  std::vector<std::string> environment = MergedEnvironment(options.environment);
  const int result = posix_spawn(&state_->pid, options.program.c_str(), &actions, nullptr, Pointers(arguments).data(),
                                 Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  state_->input = in[1];
  state_->output = out[0];
  if (result != 0) {
    std::fprintf(stderr, "%s: %s\n", options.program.c_str(), std::strerror(result));
    std::abort();
  }
}

Process::Process(Process&&) noexcept = default;
Process& Process::operator=(Process&&) noexcept = default;

Process::~Process() {
  if (!state_) return;
  if (!state_->exitCode) {
    Kill();
    Wait();
  }
  close(state_->output);
  close(state_->error);
}

std::string Process::Hear() {
  while (true) {
    if (const std::size_t end = state_->buffered.find('\n'); end != std::string::npos) {
      std::string line = state_->buffered.substr(0, end);
      state_->buffered.erase(0, end + 1);
      return line;
    }
    char chunk[4096];
    const ssize_t got = read(state_->output, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::exchange(state_->buffered, {});
    state_->buffered.append(chunk, static_cast<std::size_t>(got));
  }
}

void Process::Say(const std::string& line) {
  const std::string text = line + "\n";
  if (write(state_->input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) Die("write");
}

int Process::Wait() {
  if (state_->exitCode) return *state_->exitCode;
  close(state_->input);
  int status = 0;
  while (waitpid(state_->pid, &status, 0) < 0) {
    if (errno != EINTR) Die("waitpid");
  }
  state_->exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return *state_->exitCode;
}

void Process::Kill() { kill(state_->pid, SIGKILL); }

std::uint32_t Process::Id() const { return static_cast<std::uint32_t>(state_->pid); }

std::string Process::RestOfOutput() {
  std::string all;
  for (std::string line = Hear(); !line.empty() || !state_->buffered.empty(); line = Hear()) all += line + "\n";
  return all;
}

std::string Process::ErrorOutput() {
  std::string all;
  char chunk[4096];
  off_t at = 0;
  for (ssize_t got = 0; (got = pread(state_->error, chunk, sizeof chunk, at)) > 0; at += got) {
    all.append(chunk, static_cast<std::size_t>(got));
  }
  return all;
}

std::string OwnPath() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) Die("readlink");
  return std::string(path, static_cast<std::size_t>(length));
}

void SetEnvironment(const std::string& name, const std::string& value) { setenv(name.c_str(), value.c_str(), 1); }

void UnsetEnvironment(const std::string& name) { unsetenv(name.c_str()); }

}  // namespace support
