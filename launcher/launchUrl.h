// A launcher's one action for the text behind the launch prefix.
#pragma once

#include <string>

namespace launcher {

// Asks the resident for a refresh when the text holds the refresh marker; else routes it by the machine's origin. Drops
// it silently where the origin is unknown.
void LaunchUrl(const std::u16string& text);

}  // namespace launcher
