#include "launcher/urlRouting.h"

#include <algorithm>

#include "launcher/debugLog.h"
#include "launcher/postUrl.h"
#include "launcher/remoteApp.h"
#include "launcher/ruleMatching.h"
#include "launcher/urlTextCodec.h"
#include "settings/redirectionSettings.h"
#include "settings/textConversion.h"

namespace launcher {
namespace {

using debugLog::LogDirect;
using debugLog::TraceViaHelper;

constexpr std::u16string_view kAppPathPrefix = u"apppathrd/path=";
static_assert(kAppPathPrefix.size() == 15);

}  // namespace

bool SendMessageToRedirectAppPathToAgent(const std::u16string& text) {
  if (!text.starts_with(kAppPathPrefix)) {
    LogDirect("%s: The app path is invalid: %s\n", "SendMessageToRedirectAppPathToAgent",
              settings::WStringToString(text));
    return false;
  }
  return RedirectAppPath(text.c_str());
}

bool SendMessageToRedirectUriToClient(const std::u16string& url) {
  if (url.starts_with(kAppPathPrefix) && !RedirectAppPath(url.c_str())) {
    LogDirect("%s: Do not redirect the app path '%s'\n", "SendMessageToRedirectUriToClient",
              settings::WStringToString(url));
    return false;
  }
  return PostUrlToRdeServer(url.c_str());
}

bool RedirectAppPath(const char16_t* text) {
  if (text == nullptr) {
    TraceViaHelper(u"Redirect the app path value is empty.\n");
    return false;
  }
  const std::u16string_view request(text);
  std::u16string allowlist;
  std::u16string brokerHostname;
  std::u16string remoteItem;
  settings::UrlOrigin origin = settings::UrlOrigin::Unknown;
  if (!settings::CheckAppPathSettings(allowlist, brokerHostname, remoteItem, origin)) {
    TraceViaHelper(u"Check settings failed.\n");
    return false;
  }
  // The rules see the whole request, prefix included.
  if (!IsAppPathAllowed(request, allowlist)) {
    TraceViaHelper(u"Do not redirect the app path: '%s'.\n", request);
    return false;
  }
  TraceViaHelper(u"Redirect the app path: '%s'.\n", request);
  if (origin != settings::UrlOrigin::Client) return true;

  // The path is encoded here, and once more with the whole command in StartRemoteApp: the far side decodes twice.
  const std::u16string_view path = request.substr(std::min(request.size(), kAppPathPrefix.size()));
  const std::u16string command = std::u16string(kAppPathPrefix).append(GetEncodedUrl(path));
  StartRemoteApp(command, brokerHostname, remoteItem, origin);
  return true;
}

}  // namespace launcher
