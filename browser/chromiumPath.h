// A user data directory as Chromium's policies write it: its variables, and what a relative one is relative to.
//
// Paths are narrow text. The configured text is UTF-8; known folders and the environment enter in the ANSI code pages,
// and are not converted: that shows for folders outside ASCII alone, and is kept.
#pragma once

#include <map>
#include <string>

#include "platform/files.h"
#include "settings/browserType.h"

namespace browser {

// Vets the characters, qualifies the path, expands its variables, and puts a relative one below the browser's
// application folder. Only the configured text is vetted, not what the variables bring. False, traced, when the path is
// not valid.
[[nodiscard]] bool ParseChromiumUserDataDirString(settings::BrowserType browser, std::string& path);

// Qualifies a path as the system does, without making a relative one absolute. A path that cannot be qualified stays.
void FormatPathStr(std::string& path);

// Replaces each variable that can be expanded, in one pass for each: an inserted value is not searched for the same
// variable again. True when at least one was replaced.
bool ExpandChromiumEnvVariableInPath(std::string& path);

// "${name}" to the text that the environment is asked to expand; an empty one has a rule of its own.
using ChromiumVariableTable = std::map<std::string, std::string>;
[[nodiscard]] bool ExpandEnvVariable(const std::string& variable, const ChromiumVariableTable& table,
                                     std::string& value);

// The path of a known folder, in the thread's ANSI code page.
[[nodiscard]] bool GetKnownFolderPath(const platform::KNOWNFOLDERID& folder, std::string& value);

}  // namespace browser
