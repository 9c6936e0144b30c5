#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/process.h"

namespace support {
namespace {

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "%s: error %lu\n", what, GetLastError());
  std::abort();
}

std::wstring Widen(const std::string& text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

// The argument as the system's own splitting gives it back.
std::wstring Quoted(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) return argument;
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t unit : argument) {
    if (unit == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = unit == L'\\' ? backslashes + 1 : 0;
    quoted += unit;
  }
  return quoted.append(backslashes, L'\\') + L"\"";
}

std::wstring CommandLineOf(const StartOptions& options) {
  if (options.rawCommandLine) return std::wstring(options.rawCommandLine->begin(), options.rawCommandLine->end());
  std::wstring line = Quoted(Widen(options.program));
  for (const std::string& argument : options.arguments) line += L" " + Quoted(Widen(argument));
  return line;
}

HANDLE InheritableTemporaryFile() {
  wchar_t folder[MAX_PATH];
  wchar_t path[MAX_PATH];
  if (GetTempPathW(MAX_PATH, folder) == 0 || GetTempFileNameW(folder, L"lum", 0, path) == 0) Die("GetTempFileNameW");
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  const HANDLE file =
      CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  &inheritable, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (file == INVALID_HANDLE_VALUE) Die("CreateFileW");
  return file;
}

}  // namespace

struct Process::State {
  HANDLE process = nullptr;
  DWORD id = 0;
  HANDLE input = nullptr;
  HANDLE output = nullptr;
  HANDLE error = nullptr;
  std::string buffered;
  std::optional<int> exitCode;
};

Process::Process(const StartOptions& options) : state_(std::make_unique<State>()) {
  HANDLE childInput = nullptr;
  HANDLE childOutput = nullptr;
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  if (!CreatePipe(&childInput, &state_->input, &inheritable, 0)) Die("CreatePipe");
  if (!CreatePipe(&state_->output, &childOutput, &inheritable, 0)) Die("CreatePipe");
  SetHandleInformation(state_->input, HANDLE_FLAG_INHERIT, 0);
  SetHandleInformation(state_->output, HANDLE_FLAG_INHERIT, 0);
  state_->error = InheritableTemporaryFile();

  std::vector<std::pair<std::wstring, std::wstring>> saved;
  for (const auto& [name, value] : options.environment) {
    wchar_t old[32767] = L"";
    GetEnvironmentVariableW(Widen(name).c_str(), old, 32767);
    saved.emplace_back(Widen(name), old);
    SetEnvironmentVariableW(Widen(name).c_str(), Widen(value).c_str());
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = childInput;
  startup.hStdOutput = childOutput;
  startup.hStdError = state_->error;
  PROCESS_INFORMATION information{};
  std::wstring line = CommandLineOf(options);
  const std::wstring program = Widen(options.program);
  if (!CreateProcessW(program.empty() ? nullptr : program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                      nullptr, &startup, &information)) {
    Die("CreateProcessW");
  }
  for (const auto& [name, value] : saved)
    SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
  CloseHandle(information.hThread);
  CloseHandle(childInput);
  CloseHandle(childOutput);
  state_->process = information.hProcess;
  state_->id = information.dwProcessId;
}

Process::Process(Process&&) noexcept = default;
Process& Process::operator=(Process&&) noexcept = default;

Process::~Process() {
  if (!state_) return;
  if (!state_->exitCode) {
    Kill();
    Wait();
  }
  CloseHandle(state_->process);
  CloseHandle(state_->output);
  CloseHandle(state_->error);
}

std::string Process::Hear() {
  while (true) {
    if (const std::size_t end = state_->buffered.find('\n'); end != std::string::npos) {
      std::string line = state_->buffered.substr(0, end);
      state_->buffered.erase(0, end + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return line;
    }
    char chunk[4096];
    DWORD got = 0;
    if (!ReadFile(state_->output, chunk, sizeof chunk, &got, nullptr) || got == 0) {
      return std::exchange(state_->buffered, {});
    }
    state_->buffered.append(chunk, got);
  }
}

void Process::Say(const std::string& line) {
  const std::string text = line + "\n";
  DWORD written = 0;
  if (!WriteFile(state_->input, text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) Die("WriteFile");
}

int Process::Wait() {
  if (state_->exitCode) return *state_->exitCode;
  CloseHandle(state_->input);
  WaitForSingleObject(state_->process, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(state_->process, &code);
  state_->exitCode = static_cast<int>(code);
  return *state_->exitCode;
}

void Process::Kill() { TerminateProcess(state_->process, 137); }

std::uint32_t Process::Id() const { return state_->id; }

std::string Process::RestOfOutput() {
  std::string all;
  for (std::string line = Hear(); !line.empty() || !state_->buffered.empty(); line = Hear()) all += line + "\n";
  return all;
}

std::string Process::ErrorOutput() {
  std::string all;
  SetFilePointer(state_->error, 0, nullptr, FILE_BEGIN);
  char chunk[4096];
  for (DWORD got = 0; ReadFile(state_->error, chunk, sizeof chunk, &got, nullptr) && got > 0;) all.append(chunk, got);
  return all;
}

std::string OwnPath() {
  wchar_t path[1024];
  const DWORD length = GetModuleFileNameW(nullptr, path, 1024);
  std::string narrow(length * 3, '\0');
  narrow.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, path, static_cast<int>(length), narrow.data(),
                                                             static_cast<int>(narrow.size()), nullptr, nullptr)));
  return narrow;
}

void SetEnvironment(const std::string& name, const std::string& value) {
  SetEnvironmentVariableW(Widen(name).c_str(), Widen(value).c_str());
}

void UnsetEnvironment(const std::string& name) { SetEnvironmentVariableW(Widen(name).c_str(), nullptr); }

}  // namespace support
