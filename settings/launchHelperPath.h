// Where the program is installed, as the registered commands name it.
#pragma once

#include <string>

namespace settings {

inline constexpr const char16_t* HelperExecutableName = u"lumenar-url-protocol-launch-helper.exe";

// The path of the installed program, by the install path that the registry has for this side of the session, used as it
// is stored. False when neither view of the registry has one: `path` then leads to the default folder.
bool GetLaunchHelperPath(std::u16string& path);

}  // namespace settings
