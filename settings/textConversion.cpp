#include "settings/textConversion.h"

#include "launcher/debugLog.h"
#include "platform/error.h"
#include "platform/text.h"

namespace settings {

std::string WStringToString(std::u16string_view text) {
  if (text.empty()) {
    debugLog::TraceViaHelper(u"WStringToString: The input wstring is empty.\n");
    return {};
  }
  const int length = static_cast<int>(text.size());
  const int size =
      platform::WideCharToMultiByte(platform::CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string converted(static_cast<std::size_t>(size), '\0');
  if (platform::WideCharToMultiByte(platform::CP_UTF8, 0, text.data(), length, converted.data(), size, nullptr,
                                    nullptr) == 0) {
    const platform::DWORD error = platform::GetLastError();
    debugLog::TraceViaHelper(u"WStringToString: Failed to convert %s, error=0x%08x\n", text, error);
    return {};
  }
  return converted;
}

std::u16string StringToWString(std::string_view text) {
  if (text.empty()) {
    debugLog::TraceViaHelper(u"%S: The input string is empty.\n", "StringToWString");
    return {};
  }
  const int length = static_cast<int>(text.size());
  const int size = platform::MultiByteToWideChar(platform::CP_UTF8, 0, text.data(), length, nullptr, 0);
  std::u16string converted(static_cast<std::size_t>(size), u'\0');
  if (platform::MultiByteToWideChar(platform::CP_UTF8, 0, text.data(), length, converted.data(), size) == 0) {
    const platform::DWORD error = platform::GetLastError();
    debugLog::TraceViaHelper(u"%S: Failed to convert %S, error=0x%08x\n", "StringToWString", text, error);
    return {};
  }
  return converted;
}

}  // namespace settings
