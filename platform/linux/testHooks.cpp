#include "platform/linux/testHooks.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/handleTable.h"
#include "platform/linux/testClock.h"
#include "platform/linux/testSessions.h"

namespace platform {
namespace {

struct Faults {
  std::atomic<bool> armed{false};
  std::mutex lock;  // Guards what follows.
  unsigned failAt = 0;
  bool persistent = false;
  DWORD error = ERROR_SUCCESS;
  std::string spared;
  std::vector<std::string> only;  // When not empty, the names that fail.
  std::vector<std::string> calls;
};

struct TestTime {
  std::mutex lock;
  std::optional<SYSTEMTIME> time;
};

TestTime& TheTestTime() {
  static TestTime& time = *new TestTime;
  return time;
}

struct TestSessions {
  std::mutex lock;
  std::map<DWORD, DWORD> states;
};

TestSessions& TheTestSessions() {
  static TestSessions& sessions = *new TestSessions;
  return sessions;
}

void Arm(Faults& faults, unsigned failAt, bool persistent, DWORD error) {
  const std::lock_guard guard(faults.lock);
  faults.failAt = failAt;
  faults.persistent = persistent;
  faults.error = error;
  faults.spared.clear();
  faults.only.clear();
  faults.calls.clear();
  faults.armed = true;
}

void ArmFromEnvironment(Faults& faults) {
  const char* setting = std::getenv("LUMENAR_FAIL_AT");
  if (setting == nullptr) return;
  char* end = nullptr;
  const auto failAt = static_cast<unsigned>(std::strtoul(setting, &end, 10));
  Arm(faults, failAt, *end == '+', ERROR_NOT_ENOUGH_MEMORY);
  if (const char* spared = std::getenv("LUMENAR_FAIL_SPARES")) faults.spared = spared;
}

// Armed by the environment before the first call, whichever static object makes it. Never destroyed: so does the last.
Faults& TheFaults() {
  static Faults& faults = [] -> Faults& {
    auto& made = *new Faults;
    ArmFromEnvironment(made);
    return made;
  }();
  return faults;
}

void WriteReport() {
  const char* path = std::getenv("LUMENAR_FAULT_REPORT");
  FILE* file = path != nullptr ? std::fopen(path, "we") : nullptr;
  if (file == nullptr) return;
  for (const std::string& call : test::CountedCalls()) std::fprintf(file, "%s\n", call.c_str());
  std::fputs("\n", file);
  for (const std::string& kind : test::LiveHandles()) std::fprintf(file, "%s\n", kind.c_str());
  std::fclose(file);
}

// Registered ahead of nearly every other object of the process, so that the report comes when those have gone.
[[maybe_unused]] const bool reportsAtExit =
    std::getenv("LUMENAR_FAULT_REPORT") != nullptr && std::atexit(&WriteReport) == 0;

}  // namespace

bool FaultInjected(const char* call) noexcept {
  Faults& faults = TheFaults();
  if (!faults.armed) return false;
  const std::lock_guard guard(faults.lock);
  const std::size_t number = faults.calls.size() + 1;
  const bool due = number == faults.failAt || (faults.persistent && number > faults.failAt);
  const bool meant = faults.only.empty() ? faults.spared != call : std::ranges::count(faults.only, call) > 0;
  const bool fails = faults.failAt != 0 && due && meant;
  faults.calls.push_back((fails ? "!" : "") + std::string(call));
  if (fails) SetLastError(faults.error);
  return fails;
}

DWORD PatienceFor(DWORD milliseconds) noexcept {
  static const bool patient = std::getenv("LUMENAR_FAIL_AT") != nullptr;
  return patient ? std::max<DWORD>(milliseconds, 60'000) : milliseconds;
}

std::optional<SYSTEMTIME> TimeSetByTest() noexcept {
  TestTime& time = TheTestTime();
  const std::lock_guard guard(time.lock);
  return time.time;
}

std::optional<DWORD> StateOfTestSession(DWORD session) noexcept {
  TestSessions& sessions = TheTestSessions();
  const std::lock_guard guard(sessions.lock);
  const auto found = sessions.states.find(session);
  return found != sessions.states.end() ? std::optional(found->second) : std::nullopt;
}

namespace test {

void ArmFaults(unsigned failAt, bool persistent, DWORD error) { Arm(TheFaults(), failAt, persistent, error); }

void ArmFaultsOf(std::vector<std::string> calls, DWORD error) {
  Faults& faults = TheFaults();
  Arm(faults, 1, true, error);
  const std::lock_guard guard(faults.lock);
  faults.only = std::move(calls);
}

void DisarmFaults() { TheFaults().armed = false; }

std::vector<std::string> CountedCalls() {
  Faults& faults = TheFaults();
  const std::lock_guard guard(faults.lock);
  return faults.calls;
}

void SetLocalTime(std::optional<SYSTEMTIME> set) {
  TestTime& time = TheTestTime();
  const std::lock_guard guard(time.lock);
  time.time = set;
}

void SetOtherSessions(std::map<DWORD, DWORD> stateBySession) {
  TestSessions& sessions = TheTestSessions();
  const std::lock_guard guard(sessions.lock);
  sessions.states = std::move(stateBySession);
}

std::vector<std::string> LiveHandles() { return handleTable::LiveKinds(); }

}  // namespace test
}  // namespace platform
