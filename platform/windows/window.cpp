#include "platform/window.h"
#include "platform/windows/waits.h"

#include <windows.h>

#include <cstddef>
#include <type_traits>

namespace platform {
namespace {

template <class Native, class Handle>
Native ToNative(Handle handle) {
  return reinterpret_cast<Native>(handle.value());
}

HWND Ours(::HWND window) { return HWND(reinterpret_cast<std::uintptr_t>(window)); }

const wchar_t* ToNative(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }

// Our structures are the system's, so that their addresses are passed as they stand.
static_assert(sizeof(WNDCLASSEXW) == sizeof(::WNDCLASSEXW));
static_assert(offsetof(WNDCLASSEXW, lpfnWndProc) == offsetof(::WNDCLASSEXW, lpfnWndProc));
static_assert(offsetof(WNDCLASSEXW, hInstance) == offsetof(::WNDCLASSEXW, hInstance));
static_assert(offsetof(WNDCLASSEXW, lpszClassName) == offsetof(::WNDCLASSEXW, lpszClassName));
static_assert(offsetof(WNDCLASSEXW, hIconSm) == offsetof(::WNDCLASSEXW, hIconSm));

static_assert(sizeof(MSG) == sizeof(::MSG));
static_assert(offsetof(MSG, message) == offsetof(::MSG, message));
static_assert(offsetof(MSG, wParam) == offsetof(::MSG, wParam));
static_assert(offsetof(MSG, lParam) == offsetof(::MSG, lParam));
static_assert(offsetof(MSG, time) == offsetof(::MSG, time));
static_assert(offsetof(MSG, ptX) == offsetof(::MSG, pt));

static_assert(sizeof(COPYDATASTRUCT) == sizeof(::COPYDATASTRUCT));
static_assert(offsetof(COPYDATASTRUCT, cbData) == offsetof(::COPYDATASTRUCT, cbData));
static_assert(offsetof(COPYDATASTRUCT, lpData) == offsetof(::COPYDATASTRUCT, lpData));

static_assert(sizeof(INPUT) == sizeof(::INPUT));
static_assert(offsetof(INPUT, ki) == offsetof(::INPUT, ki));
static_assert(offsetof(KEYBDINPUT, dwFlags) == offsetof(::KEYBDINPUT, dwFlags));
static_assert(offsetof(KEYBDINPUT, dwExtraInfo) == offsetof(::KEYBDINPUT, dwExtraInfo));

// The system calls a window procedure of ours as it stands: a class of one word that may be copied bit by bit is passed
// as that word.
static_assert(sizeof(HWND) == sizeof(::HWND) && std::is_trivially_copyable_v<HWND>);
static_assert(sizeof(LRESULT) == sizeof(::LRESULT) && sizeof(LPARAM) == sizeof(::LPARAM));

struct Enumeration {
  WNDENUMPROC callback;
  LPARAM parameter;
};

// A `bool` fills only a part of the register that the system reads a BOOL from.
BOOL CALLBACK CallBack(::HWND window, ::LPARAM parameter) {
  const auto& enumeration = *reinterpret_cast<const Enumeration*>(parameter);
  return enumeration.callback(Ours(window), enumeration.parameter) ? TRUE : FALSE;
}

}  // namespace

WORD RegisterClassExW(const WNDCLASSEXW* windowClass) noexcept {
  return ::RegisterClassExW(reinterpret_cast<const ::WNDCLASSEXW*>(windowClass));
}

HWND CreateWindowExW(DWORD exStyle, const char16_t* className, const char16_t* windowName, DWORD style, int x, int y,
                     int width, int height, HWND parent, std::nullptr_t, HINSTANCE instance, std::nullptr_t) noexcept {
  return Ours(::CreateWindowExW(exStyle, ToNative(className), ToNative(windowName), style, x, y, width, height,
                                ToNative<::HWND>(parent), nullptr, ToNative<::HINSTANCE>(instance), nullptr));
}

bool DestroyWindow(HWND window) noexcept { return ::DestroyWindow(ToNative<::HWND>(window)) != 0; }

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
  return ::DefWindowProcW(ToNative<::HWND>(window), message, wParam, lParam);
}

bool ChangeWindowMessageFilterEx(HWND window, UINT message, DWORD action, std::nullptr_t) noexcept {
  return ::ChangeWindowMessageFilterEx(ToNative<::HWND>(window), message, action, nullptr) != 0;
}

int GetMessageW(MSG* message, std::nullptr_t, UINT filterMin, UINT filterMax) noexcept {
  return ::GetMessageW(reinterpret_cast<::MSG*>(message), nullptr, filterMin, filterMax);
}

bool TranslateMessage(const MSG* message) noexcept {
  return ::TranslateMessage(reinterpret_cast<const ::MSG*>(message)) != 0;
}

LRESULT DispatchMessageW(const MSG* message) noexcept {
  return ::DispatchMessageW(reinterpret_cast<const ::MSG*>(message));
}

void PostQuitMessage(int exitCode) noexcept { ::PostQuitMessage(exitCode); }

DWORD MsgWaitForMultipleObjects(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds,
                                DWORD wakeMask) noexcept {
  return ::MsgWaitForMultipleObjects(count, NativeArray(handles), waitAll, milliseconds, wakeMask);
}

bool PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
  return ::PostMessageW(ToNative<::HWND>(window), message, wParam, lParam) != 0;
}

HWND FindWindowW(const char16_t* className, std::nullptr_t) noexcept {
  return Ours(::FindWindowW(ToNative(className), nullptr));
}

LRESULT SendMessageTimeoutW(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT flags, UINT milliseconds,
                            std::uintptr_t* result) noexcept {
  return ::SendMessageTimeoutW(ToNative<::HWND>(window), message, wParam, lParam, flags, milliseconds,
                               reinterpret_cast<PDWORD_PTR>(result));
}

bool EnumWindows(WNDENUMPROC callback, LPARAM parameter) noexcept {
  Enumeration enumeration{callback, parameter};
  return ::EnumWindows(&CallBack, reinterpret_cast<::LPARAM>(&enumeration)) != 0;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId) noexcept {
  static_assert(sizeof(DWORD) == sizeof(::DWORD));
  return ::GetWindowThreadProcessId(ToNative<::HWND>(window), reinterpret_cast<::DWORD*>(processId));
}

UINT SendInput(UINT count, const INPUT* inputs, int size) noexcept {
  // The system takes the inputs by an address that is not const, and does not write to them.
  return ::SendInput(count, reinterpret_cast<::INPUT*>(const_cast<INPUT*>(inputs)), size);
}

bool SetForegroundWindow(HWND window) noexcept { return ::SetForegroundWindow(ToNative<::HWND>(window)) != 0; }

HWND GetForegroundWindow() noexcept { return Ours(::GetForegroundWindow()); }

int MessageBoxW(HWND owner, const char16_t* text, const char16_t* caption, UINT type) noexcept {
  return ::MessageBoxW(ToNative<::HWND>(owner), ToNative(text), ToNative(caption), type);
}

}  // namespace platform
