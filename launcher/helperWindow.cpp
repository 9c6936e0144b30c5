#include "launcher/helperWindow.h"

#include <cstddef>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "browser/extensionData.h"
#include "launcher/clientProcess.h"
#include "launcher/debugLog.h"
#include "launcher/handOff.h"
#include "launcher/postUrl.h"
#include "settings/redirectionSettings.h"

namespace launcher {
namespace {

using platform::COPYDATASTRUCT;
using platform::HWND;

// The text in a message from another process: up to its NUL, or to the end of the data where it has none. Nothing when
// there are no data.
std::optional<std::u16string> CopyText(const COPYDATASTRUCT& data) {
  if (data.lpData == nullptr) return std::nullopt;
  const auto* const bytes = static_cast<const std::byte*>(data.lpData);  // Not always where a char16_t may lie.
  std::u16string text;
  for (std::size_t at = 0; data.cbData - at >= sizeof(char16_t); at += sizeof(char16_t)) {
    char16_t unit = u'\0';
    std::memcpy(&unit, bytes + at, sizeof unit);
    if (unit == u'\0') break;
    text += unit;
  }
  return text;
}

void LaunchOrPost(std::optional<std::u16string> text) {
  const settings::UrlOrigin origin = settings::GetUrlRedirectionOrigin();
  if (!text) return;
  if (origin != settings::UrlOrigin::Agent) {
    StartClientProcess(*std::move(text));
  } else if (PostUrlToRdeServer(text->c_str())) {
    debugLog::AppendDebugLogLine(*text);  // It has no line end of its own; the next stamp follows on the same line.
  }
}

void TakeHandOff(HWND window, const COPYDATASTRUCT& data) {
  switch (data.dwData) {
    case handOff::HELPER_REFRESH_CONFIG:
      platform::PostMessageW(window, platform::WM_USER, 0, 0);  // The sender need not wait for the refresh.
      break;
    case handOff::HELPER_LOG_TEXT:
      if (const auto text = CopyText(data)) debugLog::AppendDebugLogLine(*text);
      break;
    case handOff::HELPER_LAUNCH_OR_POST: LaunchOrPost(CopyText(data)); break;
    default: break;
  }
}

}  // namespace

platform::LRESULT HelperWindowProc(HWND window, platform::UINT message, platform::WPARAM wParam,
                                   platform::LPARAM lParam) noexcept try {
  switch (message) {
    case platform::WM_CREATE:
      platform::ChangeWindowMessageFilterEx(window, platform::WM_COPYDATA, platform::MSGFLT_ALLOW, nullptr);
      return 0;
    case platform::WM_DESTROY: platform::PostQuitMessage(0); return 0;
    case platform::WM_USER: browser::WriteAllExtensionData(); return 0;
    case platform::WM_COPYDATA:
      if (const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam)) TakeHandOff(window, *data);
      return 0;
    default: return platform::DefWindowProcW(window, message, wParam, lParam);
  }
} catch (const std::bad_alloc&) {
  return 0;  // Any sender decides how much is to be copied.
}

}  // namespace launcher
