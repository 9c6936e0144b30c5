#include "browser/extensionData.h"

#include "browser/dataFile.h"
#include "browser/firefoxStorage.h"
#include "browser/userDataDir.h"
#include "launcher/debugLog.h"
#include "platform/files.h"
#include "settings/ruleDocument.h"
#include "settings/textConversion.h"

namespace browser {
namespace {

using debugLog::LogDirect;
using platform::MAX_PATH;

// Below the user's local application data, by browser.
constexpr const char16_t* ExtensionRelativePath[] = {u"Google\\Chrome\\User Data\\Default\\Extensions",
                                                     u"Microsoft\\Edge\\User Data\\Default\\Extensions",
                                                     u"Mozilla\\Firefox\\Profiles"};
// The same extension in both browsers.
constexpr const char16_t* kChromiumExtensionId = u"pgmkcoafbnjdeihlmkgobfajcpeidnhl";
// Only the profile of that name is served.
constexpr const char16_t* kDefaultProfile = u"Default\\Extensions";

const char16_t* RelativePathOf(BrowserType browser) { return ExtensionRelativePath[static_cast<std::size_t>(browser)]; }

// A path that would get too long stays as it was before the append.
struct PathBuffer {
  char16_t text[MAX_PATH] = {};
  void Append(const char16_t* more) noexcept { platform::PathCchAppend(text, MAX_PATH, more); }
};

}  // namespace

std::u16string GetExtensionPath(BrowserType browser) {
  PathBuffer path;
  std::u16string userDataDir;
  if (GetUserDataDirPathForChromiumBrowser(browser, userDataDir)) {
    userDataDir.copy(path.text, MAX_PATH - 1);
    path.Append(kDefaultProfile);
    path.Append(kChromiumExtensionId);
    return path.text;
  }
  if (platform::SHGetFolderPathW(nullptr, platform::CSIDL_LOCAL_APPDATA, nullptr, 0, path.text) < 0) return {};
  path.Append(RelativePathOf(browser));
  if (browser != BrowserType::Firefox) path.Append(kChromiumExtensionId);
  return path.text;
}

bool WriteExtensionData(BrowserType browser) {
  const std::u16string path = GetExtensionPath(browser);
  if (path.empty()) {
    LogDirect("Failed to get the %S extension path.\n", RelativePathOf(browser));
    return false;
  }
  const std::string document = settings::GetUrlRedirectionRules(browser);
  if (document.empty()) {
    LogDirect("Failed to get the url filtering rules from registry.\n");
    return false;
  }
  if (browser != BrowserType::Firefox) return WriteChromiumDataFiles(path, document);
  const std::u16string file = DataFileIn(path);
  if (!WriteDataFile(document, file)) return false;
  SetFirefoxManagedStorageKey(true, file);
  return true;
}

void WriteAllExtensionData() {
  for (const BrowserType browser : kBrowsers) WriteExtensionData(browser);
}

void RemoveAllExtensionData() {
  for (const BrowserType browser : kBrowsers) {
    const std::u16string path = GetExtensionPath(browser);
    if (path.empty()) {
      LogDirect("Failed to get the %s extension path.\n", settings::WStringToString(RelativePathOf(browser)));
    } else if (browser == BrowserType::Firefox) {
      DeleteFirefoxDataFile(path);
    } else {
      DeleteChromiumDataFiles(path);
    }
  }
}

}  // namespace browser
