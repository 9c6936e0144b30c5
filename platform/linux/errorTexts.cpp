#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "platform/error.h"
#include "platform/linux/faults.h"
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
    {ERROR_NO_ASSOCIATION, u"No application is associated with the specified file for this operation.\r\n"},
};

}  // namespace

DWORD FormatMessageW(DWORD flags, std::nullptr_t, DWORD messageId, DWORD, char16_t** text, DWORD,
                     std::nullptr_t) noexcept {
  if (FaultInjected("FormatMessageW")) return 0;
  if (flags != (FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM) || text == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  *text = nullptr;
  const auto* const entry = std::ranges::find(kTexts, messageId, &ErrorText::error);
  if (entry == std::end(kTexts)) {
    SetLastError(ERROR_MR_MID_NOT_FOUND);
    return 0;
  }
  const std::size_t length = entry->text.size();
  auto* const copy = static_cast<char16_t*>(std::malloc((length + 1) * sizeof(char16_t)));
  if (copy == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
  }
  *std::ranges::copy(entry->text, copy).out = u'\0';
  *text = copy;
  return static_cast<DWORD>(length);
}

}  // namespace platform
