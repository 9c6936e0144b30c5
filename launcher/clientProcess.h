// Starting the remote client and bringing it forward; the resident helper's side of a launch.
#pragma once

#include <string>

#include "platform/window.h"

namespace launcher {

// Starts the program that the command line names, waits up to 3 s until it is ready for input, and activates its first
// window. Silent when any of it fails. The system may write to the text.
void StartClientProcess(std::u16string commandLine);

// The callback of EnumWindows: activates the window and ends the enumeration when it belongs to the process. True goes
// on.
bool ActivateLaunchedWindowCB(platform::HWND window, platform::LPARAM processId);

}  // namespace launcher
