// What the resident helper's threads share.
#pragma once

#include "platform/handles.h"

namespace launcher {

// Set when the resident ends. Written once, before the settings watcher starts.
extern platform::EventHandle ShutdownEvent;
// Whether the origin of this machine names an agent; read again after the message loop.
extern bool IsAgent;

}  // namespace launcher
