#include <gtest/gtest.h>
#include <windows.h>

#include "tests/roads/watchedProcess.h"
#include "tests/support/machine.h"

namespace roads {

const int kAbnormalEnd = 3;
const int kRepetitions = 3;

namespace {

constexpr int kLooks = 3000;
constexpr std::uint32_t kBetweenLooksForTheBox = 20;
constexpr UINT kLongestAnswer = 10000;
constexpr int kTextControl = 0xFFFF;

class OpenedProcess {
 public:
  OpenedProcess(DWORD id, DWORD access) : handle_(OpenProcess(access, FALSE, id)) {}
  OpenedProcess(const OpenedProcess&) = delete;
  OpenedProcess& operator=(const OpenedProcess&) = delete;
  ~OpenedProcess() {
    if (handle_ != nullptr) CloseHandle(handle_);  // closes by hand: the system's own handle type
  }
  [[nodiscard]] HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

// The system has no documented call for this; debuggers use these.
void CallOnProcess(const support::Process& process, const char* call) {
  using Call = LONG(WINAPI*)(HANDLE);
  const OpenedProcess opened(process.Id(), PROCESS_SUSPEND_RESUME);
  const auto function = reinterpret_cast<Call>(  // By way of a type that any function pointer may become.
      reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), call)));
  ASSERT_NE(function, nullptr) << call;
  ASSERT_EQ(function(opened.get()), 0) << call;
}

std::string TextOf(HWND window) {
  wchar_t text[1024] = L"";
  DWORD_PTR length = 0;
  SendMessageTimeoutW(window, WM_GETTEXT, 1024, reinterpret_cast<LPARAM>(text), SMTO_ABORTIFHUNG, kLongestAnswer,
                      &length);
  return support::Narrow(std::u16string(text, text + length));
}

struct Search {
  DWORD process;
  HWND box;
};

BOOL CALLBACK IsBoxOf(HWND window, LPARAM parameter) {
  auto& search = *reinterpret_cast<Search*>(parameter);
  DWORD owner = 0;
  wchar_t className[16] = L"";
  GetWindowThreadProcessId(window, &owner);
  GetClassNameW(window, className, 16);
  if (owner != search.process || std::wstring_view(className) != L"#32770" || !IsWindowVisible(window)) return TRUE;
  search.box = window;
  return FALSE;
}

}  // namespace

bool EndsWithin(std::uint32_t processId, std::uint32_t milliseconds) {
  const OpenedProcess opened(processId, SYNCHRONIZE);
  return opened.get() == nullptr || WaitForSingleObject(opened.get(), milliseconds) == WAIT_OBJECT_0;
}

void Suspend(const support::Process& process) { CallOnProcess(process, "NtSuspendProcess"); }
void Resume(const support::Process& process) { CallOnProcess(process, "NtResumeProcess"); }

// There is no event for a window that appears in another process; so this looks again and again while the process runs.
MessageBox AwaitMessageBox(support::Process& process) {
  Search search{.process = process.Id(), .box = nullptr};
  for (int i = 0; i < kLooks && search.box == nullptr && !EndsWithin(process, kBetweenLooksForTheBox); ++i) {
    EnumWindows(&IsBoxOf, reinterpret_cast<LPARAM>(&search));
  }
  if (search.box == nullptr) {
    ADD_FAILURE() << "no message was shown";
    return {};
  }
  MessageBox box{.caption = TextOf(search.box), .text = TextOf(GetDlgItem(search.box, kTextControl))};
  PostMessageW(search.box, WM_COMMAND, IDOK, 0);
  return box;
}

}  // namespace roads
