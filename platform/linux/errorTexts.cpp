#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/linux/ansi.h"
#include "platform/linux/faults.h"
#include "platform/session.h"
#include "platform/shell.h"

namespace platform {
namespace {

struct ErrorText {
  DWORD error;
  std::u16string_view text;
};

constexpr ErrorText kTexts[] = {
    {ERROR_SUCCESS, u"The operation completed successfully.\r\n"},
    {ERROR_FILE_NOT_FOUND, u"The system cannot find the file specified.\r\n"},
    {ERROR_PATH_NOT_FOUND, u"The system cannot find the path specified.\r\n"},
    {ERROR_ACCESS_DENIED, u"Access is denied.\r\n"},
    {ERROR_INVALID_HANDLE, u"The handle is invalid.\r\n"},
    {ERROR_INVALID_PARAMETER, u"The parameter is incorrect.\r\n"},
    {ERROR_ALREADY_EXISTS, u"Cannot create a file when that file already exists.\r\n"},
    {ERROR_NO_TOKEN, u"An attempt was made to reference a token that does not exist.\r\n"},
    {ERROR_NO_ASSOCIATION, u"No application is associated with the specified file for this operation.\r\n"},
};

// A copy for LocalFree. Null, with the last error set, without memory.
template <class Char>
Char* CopyOf(std::basic_string_view<Char> text) noexcept {
  auto* const copy = static_cast<Char*>(std::malloc((text.size() + 1) * sizeof(Char)));
  if (copy == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  *std::ranges::copy(text, copy).out = Char{};
  return copy;
}

// Empty, with the last error set, when there is none.
std::u16string_view TextOf(DWORD error) noexcept {
  const auto* const entry = std::ranges::find(kTexts, error, &ErrorText::error);
  if (entry != std::end(kTexts)) return entry->text;
  SetLastError(ERROR_MR_MID_NOT_FOUND);
  return {};
}

constexpr DWORD kWhole = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
constexpr DWORD kOneLine = kWhole | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;

// The texts have one line break each, at the end.
std::string OnOneLine(std::u16string_view text) {
  text.remove_suffix(std::u16string_view(u"\r\n").size());
  return ansi::FromWide(text) + " ";
}

}  // namespace

DWORD FormatMessageW(DWORD flags, std::nullptr_t, DWORD messageId, DWORD, char16_t** text, DWORD,
                     std::nullptr_t) noexcept {
  if (FaultInjected("FormatMessageW")) return 0;
  if (flags != kWhole || text == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const std::u16string_view found = TextOf(messageId);
  *text = found.empty() ? nullptr : CopyOf(found);
  return *text != nullptr ? static_cast<DWORD>(found.size()) : 0;
}

DWORD FormatMessageA(DWORD flags, std::nullptr_t, DWORD messageId, DWORD, char** text, DWORD, std::nullptr_t) noexcept
    try {
  if (FaultInjected("FormatMessageA")) return 0;
  if (flags != kOneLine || text == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  *text = nullptr;
  const std::u16string_view found = TextOf(messageId);
  if (found.empty()) return 0;
  const std::string line = OnOneLine(found);
  *text = CopyOf<char>(line);
  return *text != nullptr ? static_cast<DWORD>(line.size()) : 0;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

}  // namespace platform
