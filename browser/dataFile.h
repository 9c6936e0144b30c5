// One data file on disk, and the folders of a browser's extension that each hold one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace browser {

// The data file's path in a folder.
[[nodiscard]] std::u16string DataFileIn(std::u16string_view folder);

// Replaces the file by the document, unshared. False, logged, on failure; a file that was opened is then cut short.
bool WriteDataFile(const std::string& document, const std::u16string& file);
// Deletes the file. The log line comes when it worked, and none when it failed: inverted, and kept so.
void DeleteDataFile(const std::u16string& file);

// Appends the names of the folder's folders, but for those that begin with a dot: one for each version of an extension.
void ListExtensionVersionDirs(std::vector<std::u16string>& list, const std::u16string& path);

// Writes the document into each version's folder. True when at least one file was written.
bool WriteChromiumDataFiles(const std::u16string& path, const std::string& document);
void DeleteChromiumDataFiles(const std::u16string& path);
// Deletes the file, and the key that leads Firefox to it.
void DeleteFirefoxDataFile(const std::u16string& path);

}  // namespace browser
