// The program's registrations as the command of URL schemes, under the current user's classes.
// All three run on the resident helper's main thread, but for the removal of the launch scheme by the settings watcher.
#pragma once

namespace settings {

// Brings the user's registrations in step with the schemes that policy redirects. False when redirection is off.
bool SyncDefaultHandlers();
// Gives back every scheme whose command is this program.
bool RemoveAllDefaultHandlers();
// Registers the launch scheme with the running executable, or removes its registration.
void SetCustomProtocolKey(bool create);

}  // namespace settings
