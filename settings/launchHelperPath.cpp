#include "settings/launchHelperPath.h"

#include "platform/raii.h"
#include "settings/redirectionSettings.h"
#include "settings/registryAccess.h"

namespace settings {
namespace {

constexpr std::u16string_view FallbackInstallPath = u"C:\\Program Files\\Corvane\\Corvane Lumenar Client\\";
constexpr std::u16string_view AgentBinSuffix = u"bin\\UrlRedirection\\";

bool ReadInstallPath(const char16_t* keyPath, const char16_t* valueName, std::u16string& path) {
  platform::UniqueKey key;
  if (platform::RegOpenKeyExW(platform::HKEY_LOCAL_MACHINE, keyPath, 0, kReadAccess, key.put()) != 0) return false;
  char16_t text[platform::MAX_PATH] = {};
  platform::DWORD size = platform::MAX_PATH;  // A limit of so many bytes, though the buffer holds as many units.
  if (platform::RegGetValueW(key.get(), nullptr, valueName, platform::RRF_RT_ANY, nullptr, text, &size) != 0)
    return false;
  path = text;
  return true;
}

}  // namespace

bool GetLaunchHelperPath(std::u16string& path) {
  bool isAgent = false;
  IsURLRedirectionEnabled(&isAgent);
  const char16_t* const valueName = isAgent ? u"AgentInstallPath" : u"ClientInstallPath";
  const bool found = ReadInstallPath(u"Software\\Corvane\\Lumenar", valueName, path) ||
                     ReadInstallPath(u"Software\\Wow6432Node\\Corvane\\Lumenar", valueName, path);
  if (!found) path = FallbackInstallPath;
  if (isAgent) path.append(AgentBinSuffix);
  path.append(HelperExecutableName);
  return found;
}

}  // namespace settings
