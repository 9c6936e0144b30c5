// The one place of what the front end calls and does not have yet. Each stands behind its own header and at its place
// in the order of steps; until its own source file takes its place here, it does nothing, and says so by its result.
#include "browser/extensionData.h"
#include "client/rdeCmdClient.h"
#include "launcher/residentState.h"
#include "launcher/settingsWatcher.h"
#include "settings/defaultHandlers.h"

namespace settings {
bool SyncDefaultHandlers() { return false; }
bool RemoveAllDefaultHandlers() { return false; }
void SetCustomProtocolKey(bool) {}
}  // namespace settings

namespace browser {
bool WriteExtensionData(BrowserType) { return false; }
}  // namespace browser

namespace client {
std::uint32_t RdeCmdClient::PostRedirectionRequest(std::uint32_t, const char16_t*) { return 0; }
}  // namespace client

namespace launcher {
platform::DWORD SettingsWatcherThread(void*) {
  platform::WaitForSingleObject(ShutdownEvent, platform::INFINITE);
  return 0;
}
}  // namespace launcher
