#include "launcher/localOpen.h"

#include <string_view>

#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "platform/shell.h"
#include "platform/window.h"

namespace launcher {
namespace {

constexpr const char16_t* kLocalOpenSwitch = u"--url";
constexpr platform::DWORD kUsersLanguage = 0x400;
constexpr std::size_t kLongestReport = 255;

bool HoldsSwitch(const char16_t* argument) {
  return std::u16string_view(argument).find(kLocalOpenSwitch) != std::u16string_view::npos;
}

// Null when there is none. The program's own path is looked at first, a settled oddity.
const char16_t* UrlToOpen(Arguments arguments) {
  if (HoldsSwitch(arguments[0])) return arguments[1];
  if (arguments.size() > 2 && HoldsSwitch(arguments[1])) return arguments[2];
  return nullptr;
}

void Open(const char16_t* url) {
  platform::SHELLEXECUTEINFOW information{};
  information.cbSize = sizeof information;
  information.fMask = platform::SEE_MASK_DOENVSUBST | platform::SEE_MASK_FLAG_NO_UI;
  information.lpVerb = u"open";
  information.lpFile = url;
  information.nShow = platform::SW_SHOW;
  if (platform::ShellExecuteExW(&information)) return;
  const platform::DWORD error = platform::GetLastError();
  const std::u16string report = platform::Format(u"ShellExecute failed: url '%s' with err = %ld.", url, error);
  debugLog::AppendDebugLogLine(std::u16string_view(report).substr(0, kLongestReport));
}

void TellThatNothingIsAssociated(const char16_t* text) {
  char16_t* message = nullptr;
  if (platform::FormatMessageW(platform::FORMAT_MESSAGE_ALLOCATE_BUFFER | platform::FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                               platform::ERROR_NO_ASSOCIATION, kUsersLanguage, &message, 0, nullptr) == 0) {
    return;
  }
  const platform::UniqueLocal<char16_t> owner(message);
  platform::MessageBoxW(nullptr, message, text, platform::MB_ICONHAND | platform::MB_TOPMOST);
}

}  // namespace

void OpenLocally(Arguments arguments) {
  if (const char16_t* const url = UrlToOpen(arguments)) {
    Open(url);
  } else {
    TellThatNothingIsAssociated(arguments[1]);
  }
}

}  // namespace launcher
