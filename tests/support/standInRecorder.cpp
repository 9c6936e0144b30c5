// A stand-in of the remote client, for tests: it sends its command line to the recorder's window, waits until that has
// answered, and ends. Unlike the other stand-in it leaves no file behind and has no window.
#include <string>

#include "platform/entry.h"
#include "platform/handles.h"
#include "platform/shell.h"
#include "platform/window.h"
#include "tests/support/recorder.h"

namespace {
constexpr platform::UINT kLongestAnswer = 60000;
constexpr platform::UINT SMTO_NORMAL = 0;
}  // namespace

int platform::ProgramMain() {
  const HWND recorder = FindWindowW(support::kRecorderClass, nullptr);
  if (!recorder) return 1;
  std::u16string line = GetCommandLineW();
  COPYDATASTRUCT report{.dwData = GetCurrentProcessId(),
                        .cbData = static_cast<DWORD>(line.size() * sizeof(char16_t)),
                        .lpData = line.data()};
  return SendMessageTimeoutW(recorder, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&report), SMTO_NORMAL, kLongestAnswer,
                             nullptr) != 0
             ? 0
             : 1;
}
