#include "browser/userDataDir.h"

#include "browser/chromiumPath.h"
#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/registryAccess.h"
#include "settings/textConversion.h"

namespace browser {
namespace {

using debugLog::TraceViaHelper;
using settings::BrowserType;

const char16_t* LabelOf(BrowserType browser) { return browser == BrowserType::Chrome ? u"Chrome" : u"Chromium-Edge"; }

bool ReadUserDataDirValue(bool forCurrentUser, const char16_t* keyPath, std::u16string& value) {
  platform::UniqueNativeKey key;
  const auto open = forCurrentUser ? &settings::OpenKeyCurrentUser : &settings::OpenKeyAbsolute;
  if (open(keyPath, settings::kReadAccess, key.put()) != platform::STATUS_SUCCESS) return false;
  return settings::ReadStringValue(key.get(), u"UserDataDir", platform::REG_SZ, &value) == platform::STATUS_SUCCESS;
}

}  // namespace

UserDataDirKeyList GetRegistryUserDataDirList(BrowserType browser) {
  switch (browser) {
    case BrowserType::Chrome:
      return {{PolicyKey::Machine, u"\\Registry\\Machine\\Software\\Policies\\Google\\Chrome"},
              {PolicyKey::User, u"Software\\Policies\\Google\\Chrome"}};
    case BrowserType::Edge:
      return {{PolicyKey::Machine, u"\\Registry\\Machine\\Software\\Policies\\Microsoft\\Edge"},
              {PolicyKey::User, u"Software\\Policies\\Microsoft\\Edge"}};
    default: TraceViaHelper(u"%S: Browser type is not supported.\n", "GetRegistryUserDataDirList"); return {};
  }
}

bool GetUserDataDirPath(BrowserType browser, std::u16string& path) {
  constexpr const char* kOperation = "GetUserDataDirPath";
  if (browser == BrowserType::Firefox) return false;
  TraceViaHelper(u"%S: Get user data directory path for %s.\n", kOperation, LabelOf(browser));
  for (const UserDataDirKey& key : GetRegistryUserDataDirList(browser)) {
    if (!ReadUserDataDirValue(key.kind == PolicyKey::User, key.path, path)) continue;
    TraceViaHelper(u"%S: Succeeded to get user data directory path from registry \"%s\".\n", kOperation, path);
    return true;
  }
  TraceViaHelper(u"%S: Failed to get user data directory path from registry.\n", kOperation);
  return false;
}

bool GetUserDataDirPathForChromiumBrowser(BrowserType browser, std::u16string& path) {
  constexpr const char* kOperation = "GetUserDataDirPathForChromiumBrowser";
  if (browser == BrowserType::Firefox) {
    TraceViaHelper(u"%S: User data directory registry is not supported for Firefox.\n", kOperation);
    return false;
  }
  std::u16string value;
  if (!GetUserDataDirPath(browser, value)) {
    TraceViaHelper(u"%S: Failed to get user data directory path for %s.\n", kOperation, LabelOf(browser));
    return false;
  }
  std::string narrow = settings::WStringToString(value);
  if (!ParseChromiumUserDataDirString(browser, narrow)) {
    TraceViaHelper(u"%S: Failed to parse user data directory path string from registry.\n", kOperation);
    return false;
  }
  path = settings::StringToWString(narrow);
  TraceViaHelper(u"%S: Succeed to get user data directory path \"%s\" for %s.\n", kOperation, path, LabelOf(browser));
  return true;
}

}  // namespace browser
