#include "launcher/remoteApp.h"

#include <algorithm>
#include <optional>

#include "launcher/debugLog.h"
#include "launcher/handOff.h"
#include "launcher/urlTextCodec.h"
#include "platform/raii.h"
#include "settings/registryAccess.h"

namespace launcher {
namespace {

constexpr std::u16string_view kClient = u"lumenar-client";  // The stem of the program and the scheme of its URLs.
constexpr std::u16string_view kProgramTail = u".exe\" ";

// The path as it is stored, so that it must end in a backslash. A value of more than 260 bytes counts as unreadable:
// the limit is bytes, though the buffer holds as many units.
std::optional<std::u16string> ReadInstallPath(const char16_t* keyPath) {
  platform::UniqueNativeKey key;
  if (settings::OpenKeyAbsolute(keyPath, platform::KEY_READ, key.put()) != platform::STATUS_SUCCESS)
    return std::nullopt;
  char16_t path[platform::MAX_PATH] = {};
  platform::DWORD size = platform::MAX_PATH;
  platform::DWORD type = platform::REG_SZ;
  if (settings::QueryValue(key.get(), u"ClientInstallPath", &type, path, &size) != platform::STATUS_SUCCESS)
    return std::nullopt;
  return path;
}

std::optional<std::u16string> ClientInstallPath() {
  std::optional<std::u16string> path = ReadInstallPath(u"\\Registry\\Machine\\Software\\Corvane\\Lumenar");
  return path ? path : ReadInstallPath(u"\\Registry\\Machine\\Software\\Wow6432Node\\Corvane\\Lumenar");
}

std::u16string_view WithoutQuotes(std::u16string_view text) {
  if (text.size() < 2 || !text.starts_with(u'"') || !text.ends_with(u'"')) return text;
  return text.substr(1, text.size() - 2);
}

// The lowering comes behind the encoding, so that it reaches the digits of the escapes too.
std::u16string EncodedItem(std::u16string_view remoteItem) {
  std::u16string item = GetEncodedUrl(remoteItem);
  std::ranges::transform(item, item.begin(), [](char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
  });
  return item;
}

std::u16string ComposeClientCommandLine(std::u16string_view installPath, std::u16string_view command,
                                        std::u16string_view brokerHostname, std::u16string_view remoteItem) {
  std::u16string line;
  line.append(u"\"").append(installPath).append(kClient).append(kProgramTail);
  line.append(u"\"").append(kClient).append(u"://").append(brokerHostname).append(u"/").append(EncodedItem(remoteItem));
  return line.append(u"?url=").append(GetEncodedUrl(WithoutQuotes(command))).append(u"\"");
}

}  // namespace

int StartRemoteApp(std::u16string_view command, std::u16string_view brokerHostname, std::u16string_view remoteItem,
                   settings::UrlOrigin origin) {
  std::u16string commandLine;
  switch (origin) {
    case settings::UrlOrigin::Agent: commandLine = command; break;
    case settings::UrlOrigin::Client: {
      const std::optional<std::u16string> installPath = ClientInstallPath();
      if (!installPath) return 0;
      commandLine = ComposeClientCommandLine(*installPath, command, brokerHostname, remoteItem);
      break;
    }
    default: return 0;
  }
  debugLog::TraceViaHelper(u"StartRemoteApp: %s\n", commandLine);
  const auto size = static_cast<platform::DWORD>((commandLine.size() + 1) * sizeof(char16_t));
  return handOff::SendToHelper(handOff::HELPER_LAUNCH_OR_POST, commandLine.data(), size) == handOff::Outcome::Failed
             ? 1
             : 0;
}

}  // namespace launcher
