// The resident helper's hidden window: where launchers and the settings watcher bring their work.
//
// Everything runs on the main thread, one message at a time; meanwhile senders wait, or give up after their 500 ms.
#pragma once

#include "platform/window.h"

namespace launcher {

// WM_CREATE lets processes of lower integrity send; WM_DESTROY ends the message loop; WM_USER writes the extension data
// anew; WM_COPYDATA takes the tags of handOff.h. All of these answer 0, also where memory does not suffice for them.
platform::LRESULT HelperWindowProc(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                   platform::LPARAM lParam) noexcept;

}  // namespace launcher
