// Windows, messages, input, and the message box.
//
// A window belongs to the thread that created it: that thread alone runs its window procedure, one message at a time,
// and the window ends with the thread. FindWindowW, SendMessageTimeoutW and PostMessageW reach windows of other threads
// and of other processes of the same machine and user.
#pragma once

#include "platform/handles.h"
#include "platform/types.h"

namespace platform {

using HWND = HandleOf<struct WindowKind>;
using HINSTANCE = HandleOf<struct InstanceKind>;
// The parent of a window that only receives messages: never shown, not enumerated, found by its class name.
inline constexpr HWND HWND_MESSAGE{static_cast<std::uintptr_t>(-3)};

inline constexpr UINT WM_NULL = 0;
inline constexpr UINT WM_CREATE = 1;
inline constexpr UINT WM_DESTROY = 2;
inline constexpr UINT WM_QUIT = 0x12;
inline constexpr UINT WM_COPYDATA = 74;
inline constexpr UINT WM_USER = 1024;
inline constexpr UINT SMTO_ABORTIFHUNG = 2;
inline constexpr DWORD MSGFLT_ALLOW = 1;

using WNDPROC = LRESULT (*)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

struct WNDCLASSEXW {
  UINT cbSize;
  UINT style;
  WNDPROC lpfnWndProc;
  int cbClsExtra;
  int cbWndExtra;
  HINSTANCE hInstance;
  std::uintptr_t hIcon;
  std::uintptr_t hCursor;
  std::uintptr_t hbrBackground;
  const char16_t* lpszMenuName;
  const char16_t* lpszClassName;
  std::uintptr_t hIconSm;
};
static_assert(sizeof(WNDCLASSEXW) == 80);

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;
  LONG ptX;
  LONG ptY;
};
static_assert(sizeof(MSG) == 48);

// The data of WM_COPYDATA, by address in lParam. The receiver gets a copy of exactly `cbData` bytes that is readable
// until its window procedure returns; no NUL is promised behind it.
struct COPYDATASTRUCT {
  std::uintptr_t dwData;
  DWORD cbData;
  void* lpData;
};
static_assert(sizeof(COPYDATASTRUCT) == 24);

// Registers a class for this process; 0 with ERROR_CLASS_ALREADY_EXISTS when it has one of that name.
WORD RegisterClassExW(const WNDCLASSEXW* windowClass) noexcept;
// Creates a window of a registered class, and sends it WM_CREATE before it returns. Supported: a message-only window
// (HWND_MESSAGE) and, with a null parent, a top-level window. Null on failure.
[[nodiscard]] HWND CreateWindowExW(DWORD exStyle, const char16_t* className, const char16_t* windowName, DWORD style,
                                   int x, int y, int width, int height, HWND parent, std::nullptr_t menu,
                                   HINSTANCE instance, std::nullptr_t parameter) noexcept;
bool DestroyWindow(HWND window) noexcept;
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
// Lets messages of that number through to the window from processes of lower integrity.
bool ChangeWindowMessageFilterEx(HWND window, UINT message, DWORD action, std::nullptr_t status) noexcept;

// The next message of the calling thread; runs the window procedure for messages that others have sent meanwhile.
// 0 for WM_QUIT, -1 on failure, else not 0. Sleeps while there is none. `window` is null, both filters are 0.
int GetMessageW(MSG* message, std::nullptr_t window, UINT filterMin, UINT filterMax) noexcept;
bool TranslateMessage(const MSG* message) noexcept;
LRESULT DispatchMessageW(const MSG* message) noexcept;
void PostQuitMessage(int exitCode) noexcept;

inline constexpr DWORD QS_ALLINPUT = 7423;  // Every kind of message.
// As WaitForMultipleObjectsEx, with the calling thread's messages behind the handles: WAIT_OBJECT_0 plus `count` when
// one has come since the thread last looked for messages or waited so. `count` is 0 to 63; `wakeMask` is QS_ALLINPUT.
// With `waitAll`, a message must have come too.
DWORD MsgWaitForMultipleObjects(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds,
                                DWORD wakeMask) noexcept;
// Puts a message into the window's queue and returns at once. Not for messages that carry an address.
bool PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

// The window of that class, of whichever process; null when there is none.
[[nodiscard]] HWND FindWindowW(const char16_t* className, std::nullptr_t windowName) noexcept;
// Sends and waits for the answer, at most so long. A window of the calling thread is called directly. 0 on failure,
// with ERROR_TIMEOUT when the time is over: a message that was not taken up by then is withdrawn. `result` may be null.
LRESULT SendMessageTimeoutW(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT flags, UINT milliseconds,
                            std::uintptr_t* result) noexcept;

using WNDENUMPROC = bool (*)(HWND window, LPARAM parameter);
// Calls back for each top-level window of the machine until the callback returns false.
bool EnumWindows(WNDENUMPROC callback, LPARAM parameter) noexcept;
// The id of the thread that made the window, 0 for no window; `processId` may be null.
DWORD GetWindowThreadProcessId(HWND window, DWORD* processId) noexcept;

inline constexpr DWORD INPUT_KEYBOARD = 1;
inline constexpr DWORD KEYEVENTF_KEYUP = 2;
inline constexpr WORD VK_MENU = 18;

struct KEYBDINPUT {
  WORD wVk;
  WORD wScan;
  DWORD dwFlags;
  DWORD time;
  std::uintptr_t dwExtraInfo;
};
struct INPUT {
  DWORD type;
  KEYBDINPUT ki;
  BYTE reserved[8];  // The system's union is as large as its mouse member.
};
static_assert(sizeof(INPUT) == 40);

// The number of inputs that were inserted.
UINT SendInput(UINT count, const INPUT* inputs, int size) noexcept;
bool SetForegroundWindow(HWND window) noexcept;
[[nodiscard]] HWND GetForegroundWindow() noexcept;

inline constexpr UINT MB_ICONHAND = 0x10;
inline constexpr UINT MB_TOPMOST = 0x40000;
// Shows the text until the user closes it. On a machine without a display it goes to standard error.
int MessageBoxW(HWND owner, const char16_t* text, const char16_t* caption, UINT type) noexcept;

}  // namespace platform
