// The program's registrations as the command of URL schemes, under the current user's classes. The machine's are never
// written, and a scheme that the machine or another program has claimed is left to it.
//
// A registration is recognised as the program's own by the program's file name in the command, wherever that lies.
// No failure stops a loop over schemes; each is a line in the daily log. All of this runs on the resident helper's main
// thread, but for the removal of the launch scheme by the settings watcher.
#pragma once

#include <string>
#include <vector>

namespace settings {

using HandlerList = std::vector<std::u16string>;  // Scheme names, without a colon.

// Brings the user's registrations in step with the schemes that policy redirects: when the two lists differ, by
// position, all of ours are removed and written anew. False, and nothing changed, when redirection is off.
bool SyncDefaultHandlers();
// Gives back every scheme whose command is this program.
bool RemoveAllDefaultHandlers();

// The user's schemes whose command is ours, in the registry's order. False when the classes cannot be opened.
bool EnumerateDefaultHandlers(HandlerList& list);
// The schemes that the root key names: all, or, with `filter` 1, those that neither the machine nor another program of
// the user has claimed. False when there is no root key.
bool GetSupportedProtocols(HandlerList& list, int filter);
// Both are always true.
bool RemoveListOfDefaultHandlers(const HandlerList& list);
bool SetListOfDefaultHandlers(const HandlerList& list);

// Registers the launch scheme with the running executable, overwriting what stood there, or removes its registration.
void SetCustomProtocolKey(bool create);

}  // namespace settings
