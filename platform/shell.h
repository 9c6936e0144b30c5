// The process's command line, opening things by the user's associations, and the system's texts for errors.
#pragma once

#include "platform/handles.h"
#include "platform/types.h"
#include "platform/window.h"

namespace platform {

// The command line as this process was started with it; lives as long as the process.
[[nodiscard]] const char16_t* GetCommandLineW() noexcept;
// Splits by the system's quoting rules. The result is one block for LocalFree: pointers, then texts. Null on failure.
// An empty command line gives one argument: the program's own path.
[[nodiscard]] char16_t** CommandLineToArgvW(const char16_t* commandLine, int* count) noexcept;
// Frees what a call of this file allocated; null is allowed.
void LocalFree(void* memory) noexcept;

inline constexpr DWORD SEE_MASK_DOENVSUBST = 0x200;
inline constexpr DWORD SEE_MASK_FLAG_NO_UI = 0x400;
inline constexpr int SW_SHOW = 5;

struct SHELLEXECUTEINFOW {
  DWORD cbSize;
  DWORD fMask;
  HWND hwnd;
  const char16_t* lpVerb;
  const char16_t* lpFile;
  const char16_t* lpParameters;
  const char16_t* lpDirectory;
  int nShow;
  HINSTANCE hInstApp;
  void* lpIDList;
  const char16_t* lpClass;
  std::uintptr_t hkeyClass;
  DWORD dwHotKey;
  std::uintptr_t hIcon;
  ProcessHandle hProcess;
};
static_assert(sizeof(SHELLEXECUTEINFOW) == 112);

// Opens the file or URL in `lpFile` with what the user has registered for it. Supported: the verb "open", without
// parameters, directory, class or dialogs. False on failure.
bool ShellExecuteExW(SHELLEXECUTEINFOW* information) noexcept;

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

// The system's text for an error, allocated for LocalFree. `flags` is FORMAT_MESSAGE_ALLOCATE_BUFFER and
// FORMAT_MESSAGE_FROM_SYSTEM. Returns its length in units; 0, and nothing allocated, when there is no text.
DWORD FormatMessageW(DWORD flags, std::nullptr_t source, DWORD messageId, DWORD languageId, char16_t** text, DWORD size,
                     std::nullptr_t arguments) noexcept;

inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
inline constexpr DWORD FORMAT_MESSAGE_MAX_WIDTH_MASK = 0xFF;
// The same in the ANSI code page and on one line: each line break of the text is a blank, also the last one. `flags` is
// all four.
DWORD FormatMessageA(DWORD flags, std::nullptr_t source, DWORD messageId, DWORD languageId, char** text, DWORD size,
                     std::nullptr_t arguments) noexcept;

}  // namespace platform
