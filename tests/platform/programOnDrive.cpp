#include "tests/platform/programOnDrive.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/error.h"
#include "platform/shell.h"
#include "tests/support/process.h"

namespace programs {
namespace {

constexpr const char* kVariable = "LUMENAR_TEST_RECORD";

std::filesystem::path RecordPath(const support::Machine& machine) { return machine.HostFolder() / "record"; }

// The record appears whole, or not at all.
CHILD_BODY(RecordsItsCommandLine) {
  const std::filesystem::path path = std::getenv(kVariable);
  const std::filesystem::path unfinished = path.string() + ".new";
  const std::u16string line = platform::GetCommandLineW();
  std::ofstream(unfinished, std::ios::binary)
      .write(reinterpret_cast<const char*>(line.data()), static_cast<std::streamsize>(line.size() * sizeof(char16_t)));
  std::filesystem::rename(unfinished, path);
  return 0;
}

CHILD_BODY(EndsAtOnce) { return 0; }

}  // namespace

std::u16string Put(const support::Machine& machine, std::u16string_view name) {
  const std::u16string path = machine.Folder() + std::u16string(name);
  std::filesystem::copy_file(support::OwnPath(), machine.HostPath(path));
  return path;
}

void RecordIn(const support::Machine& machine) { support::SetEnvironment(kVariable, RecordPath(machine).string()); }

std::u16string Recorded(const support::Machine& machine) {
  std::u16string line;
  // Nothing tells when a program that was started without a handle is done, so this looks until it is.
  while (line.empty()) {
    std::this_thread::yield();
    std::ifstream file(RecordPath(machine), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    line.resize(bytes.size() / sizeof(char16_t));
    bytes.copy(reinterpret_cast<char*>(line.data()), bytes.size());
  }
  std::filesystem::remove(RecordPath(machine));
  return line;
}

Started Start(std::u16string line) {
  platform::STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  platform::PROCESS_INFORMATION information{};
  if (!platform::CreateProcessW(nullptr, line.data(), nullptr, nullptr, false, platform::NORMAL_PRIORITY_CLASS, nullptr,
                                nullptr, &startup, &information)) {
    return {};
  }
  return {.process = platform::UniqueProcess(information.hProcess),
          .thread = platform::UniqueThread(information.hThread),
          .id = information.dwProcessId};
}

platform::DWORD ErrorOfStart(const std::u16string& line) {
  return Start(line) ? platform::ERROR_SUCCESS : platform::GetLastError();
}

void Remove(const support::Machine& machine, std::u16string_view path) {
  std::error_code error;
  while (!std::filesystem::remove(machine.HostPath(path), error)) std::this_thread::yield();
}

}  // namespace programs
