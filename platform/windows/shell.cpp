#include "platform/shell.h"

#include <windows.h>

#include <shellapi.h>

#include <cstddef>

namespace platform {

static_assert(sizeof(SHELLEXECUTEINFOW) == sizeof(::SHELLEXECUTEINFOW));
static_assert(offsetof(SHELLEXECUTEINFOW, lpFile) == offsetof(::SHELLEXECUTEINFOW, lpFile));
static_assert(offsetof(SHELLEXECUTEINFOW, nShow) == offsetof(::SHELLEXECUTEINFOW, nShow));
static_assert(offsetof(SHELLEXECUTEINFOW, hProcess) == offsetof(::SHELLEXECUTEINFOW, hProcess));

const char16_t* GetCommandLineW() noexcept { return reinterpret_cast<const char16_t*>(::GetCommandLineW()); }

char16_t** CommandLineToArgvW(const char16_t* commandLine, int* count) noexcept {
  return reinterpret_cast<char16_t**>(::CommandLineToArgvW(reinterpret_cast<const wchar_t*>(commandLine), count));
}

void LocalFree(void* memory) noexcept { ::LocalFree(memory); }

bool ShellExecuteExW(SHELLEXECUTEINFOW* information) noexcept {
  return ::ShellExecuteExW(reinterpret_cast<::SHELLEXECUTEINFOW*>(information)) != 0;
}

DWORD FormatMessageW(DWORD flags, std::nullptr_t, DWORD messageId, DWORD languageId, char16_t** text, DWORD size,
                     std::nullptr_t) noexcept {
  // With FORMAT_MESSAGE_ALLOCATE_BUFFER the parameter for the buffer is where its address goes.
  return ::FormatMessageW(flags, nullptr, messageId, languageId, reinterpret_cast<wchar_t*>(text), size, nullptr);
}

DWORD FormatMessageA(DWORD flags, std::nullptr_t, DWORD messageId, DWORD languageId, char** text, DWORD size,
                     std::nullptr_t) noexcept {
  return ::FormatMessageA(flags, nullptr, messageId, languageId, reinterpret_cast<char*>(text), size, nullptr);
}

}  // namespace platform
