#include <windows.h>

#include <dbghelp.h>
#include <gtest/gtest.h>
#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/watch.h"

namespace support {
namespace {

// The addresses of the calls that a thread is in, innermost first; addr2line reads them.
void PrintStack(DWORD id) {
  const HANDLE thread = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE, id);
  if (thread == nullptr) return;
  SuspendThread(thread);
  std::fprintf(stderr, "thread %lu:", id);
  CONTEXT context{};
  context.ContextFlags = CONTEXT_FULL;
  if (GetThreadContext(thread, &context)) {
    STACKFRAME64 frame{};
    frame.AddrPC.Offset = context.Rip;
    frame.AddrStack.Offset = context.Rsp;
    frame.AddrFrame.Offset = context.Rbp;
    frame.AddrPC.Mode = frame.AddrStack.Mode = frame.AddrFrame.Mode = AddrModeFlat;
    for (int depth = 0; depth < 64; ++depth) {
      if (!StackWalk64(IMAGE_FILE_MACHINE_AMD64, GetCurrentProcess(), thread, &frame, &context, nullptr,
                       SymFunctionTableAccess64, SymGetModuleBase64, nullptr) ||
          frame.AddrPC.Offset == 0) {
        break;
      }
      std::fprintf(stderr, " %llx", static_cast<unsigned long long>(frame.AddrPC.Offset));
    }
  }
  std::fprintf(stderr, "\n");
  ResumeThread(thread);
  CloseHandle(thread);
}

void PrintAllStacks() {
  SymInitialize(GetCurrentProcess(), nullptr, TRUE);
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId() && entry.th32ThreadID != GetCurrentThreadId()) {
      PrintStack(entry.th32ThreadID);
    }
  }
  CloseHandle(snapshot);
}

DWORD Limit() {
  const char* setting = std::getenv("LUMENAR_TEST_LIMIT");
  return static_cast<DWORD>(setting != nullptr ? std::atoi(setting) : 240) * 1000;
}

// One watchdog thread for each test: it ends with the test, or ends the program.
class Listener : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    name_ = std::string(test.test_suite_name()) + "." + test.name();
    ended_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    watchdog_ = CreateThread(nullptr, 0, &Watch, this, 0, nullptr);
  }
  void OnTestEnd(const testing::TestInfo&) override {
    SetEvent(ended_);
    WaitForSingleObject(watchdog_, INFINITE);
    CloseHandle(watchdog_);
    CloseHandle(ended_);
  }
  static DWORD WINAPI Watch(void* parameter) {
    const auto& self = *static_cast<Listener*>(parameter);
    if (WaitForSingleObject(self.ended_, Limit()) != WAIT_TIMEOUT) return 0;
    std::fprintf(stderr, "%s takes too long\n", self.name_.c_str());
    PrintAllStacks();
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 3);
    return 0;
  }

  std::string name_;
  HANDLE ended_ = nullptr;
  HANDLE watchdog_ = nullptr;
};

}  // namespace

void PromiseLeftOpen(const std::string&, unsigned) {}

void WatchTests() { testing::UnitTest::GetInstance()->listeners().Append(new Listener); }

}  // namespace support
