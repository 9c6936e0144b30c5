// Asking for the remote client: its command line, composed by the launcher and handed to the resident helper.
#pragma once

#include <string_view>

#include "settings/redirectionSettings.h"

namespace launcher {

// On a Client machine composes the command line of the remote client, on an Agent machine takes `command` for it, and
// sends it to the resident helper. 1 only when there was a helper and the send failed or timed out, which callers
// ignore: a client that is slow to start keeps the helper busy, and starts all the same.
int StartRemoteApp(std::u16string_view command, std::u16string_view brokerHostname, std::u16string_view remoteItem,
                   settings::UrlOrigin origin);

}  // namespace launcher
