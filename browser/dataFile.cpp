#include "browser/dataFile.h"

#include "browser/firefoxStorage.h"
#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/textConversion.h"

namespace browser {
namespace {

using debugLog::LogDirect;
using platform::DWORD;

std::u16string Below(std::u16string_view folder, std::u16string_view name) {
  return std::u16string(folder).append(u"\\").append(name);
}

}  // namespace

std::u16string DataFileIn(std::u16string_view folder) { return Below(folder, u"data.json"); }

bool WriteDataFile(const std::string& document, const std::u16string& file) {
  const platform::UniqueFile handle(platform::CreateFileW(file.c_str(), platform::GENERIC_WRITE, 0, nullptr,
                                                          platform::CREATE_ALWAYS, platform::FILE_ATTRIBUTE_NORMAL,
                                                          nullptr));
  if (!handle) {
    const DWORD error = platform::GetLastError();
    LogDirect("Failed to create %s, error=0x%08x\n", settings::WStringToString(file), error);
    return false;
  }
  DWORD written = 0;
  if (!platform::WriteFile(handle.get(), document.data(), static_cast<DWORD>(document.size()), &written, nullptr)) {
    const DWORD error = platform::GetLastError();
    LogDirect("Failed to write to %s, error=0x%08x\n", settings::WStringToString(file), error);
    return false;
  }
  return true;
}

void DeleteDataFile(const std::u16string& file) {
  if (!platform::DeleteFileW(file.c_str())) return;
  const DWORD error = platform::GetLastError();
  LogDirect("Failed to delete %s, error=0x%08x\n", settings::WStringToString(file), error);
}

void ListExtensionVersionDirs(std::vector<std::u16string>& list, const std::u16string& path) {
  platform::WIN32_FIND_DATAW entry{};
  const platform::UniqueFind find(platform::FindFirstFileW(Below(path, u"*").c_str(), &entry));
  if (!find) return;  // The normal case where the browser or the extension is not installed.
  do {
    const bool isFolder = (entry.dwFileAttributes & platform::FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder && entry.cFileName[0] != u'.') list.emplace_back(entry.cFileName);
  } while (platform::FindNextFileW(find.get(), &entry));
}

bool WriteChromiumDataFiles(const std::u16string& path, const std::string& document) {
  std::vector<std::u16string> versions;
  ListExtensionVersionDirs(versions, path);
  bool written = false;
  for (const std::u16string& version : versions) written |= WriteDataFile(document, DataFileIn(Below(path, version)));
  return written;
}

void DeleteChromiumDataFiles(const std::u16string& path) {
  std::vector<std::u16string> versions;
  ListExtensionVersionDirs(versions, path);
  for (const std::u16string& version : versions) DeleteDataFile(DataFileIn(Below(path, version)));
}

void DeleteFirefoxDataFile(const std::u16string& path) {
  const std::u16string file = DataFileIn(path);
  DeleteDataFile(file);
  SetFirefoxManagedStorageKey(false, file);
}

}  // namespace browser
