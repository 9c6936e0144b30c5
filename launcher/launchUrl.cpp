#include "launcher/launchUrl.h"

#include "launcher/handOff.h"
#include "launcher/urlRouting.h"
#include "launcher/urlTextCodec.h"
#include "settings/redirectionSettings.h"

namespace launcher {
namespace {
constexpr const char16_t* kRefreshMarker = u"#createConfigData";
}

void LaunchUrl(const std::u16string& text) {
  if (text.find(kRefreshMarker) != text.npos) {
    handOff::SendToHelper(handOff::HELPER_REFRESH_CONFIG, nullptr, 0);
  } else if (settings::GetUrlRedirectionOrigin() == settings::UrlOrigin::Agent) {
    SendMessageToRedirectUriToClient(GetDecodedUrl(text));
  } else if (settings::GetUrlRedirectionOrigin() == settings::UrlOrigin::Client) {  // Read a second time, as settled.
    SendMessageToRedirectAppPathToAgent(text);
  }
}

}  // namespace launcher
