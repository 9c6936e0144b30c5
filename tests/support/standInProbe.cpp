// What a script needs to know of a machine and of the resident helper on it, and cannot ask by itself.
//
//   standInProbe places           prints the folder of the daily log, then the client's install path (or an empty line)
//   standInProbe data-folder      prints the user's local application data folder
//   standInProbe registrations    prints what this program has registered for the user, a line each
//   standInProbe await-resident   waits until the resident helper answers its window
//   standInProbe end-resident     asks the resident helper to end
//
// The exit code is 0 when that worked, 1 when it did not, 2 for other arguments.
#include <chrono>
#include <iostream>
#include <string>

#include "platform/files.h"
#include "platform/format.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "platform/registry.h"
#include "platform/session.h"
#include "platform/window.h"
#include "tests/support/machine.h"

namespace {

constexpr const char16_t* kResidentClass = u"CorvaneLumenar_UrlProtocolLaunchHelperClass";
constexpr std::chrono::seconds kLongestStart(30);
constexpr platform::DWORD kStep = 10;
constexpr platform::UINT kLongestAnswer = 10000;

std::u16string LogFolder() {
  char16_t folder[platform::MAX_PATH] = u"";
  char16_t user[platform::MAX_PATH] = u"";
  platform::DWORD length = platform::MAX_PATH;
  if (platform::GetTempPathW(platform::MAX_PATH, folder) == 0 || !platform::GetUserNameW(user, &length)) return {};
  return std::u16string(folder) + u"corvane-" + user;
}

std::u16string InstallPath() {
  for (const char16_t* key : {u"Software\\Corvane\\Lumenar", u"Software\\Wow6432Node\\Corvane\\Lumenar"}) {
    char16_t path[platform::MAX_PATH] = u"";
    platform::DWORD size = sizeof path;
    if (platform::RegGetValueW(platform::HKEY_LOCAL_MACHINE, key, u"ClientInstallPath", platform::RRF_RT_REG_SZ,
                               nullptr, path, &size) == 0) {
      return path;
    }
  }
  return {};
}

int PrintPlaces() {
  const std::u16string folder = LogFolder();
  std::cout << support::Narrow(folder) << '\n' << support::Narrow(InstallPath()) << std::endl;
  return folder.empty() ? 1 : 0;
}

int PrintDataFolder() {
  char16_t folder[platform::MAX_PATH] = u"";
  const bool found = platform::SHGetFolderPathW(nullptr, platform::CSIDL_LOCAL_APPDATA, nullptr, 0, folder) >= 0;
  std::cout << support::Narrow(folder) << std::endl;
  return found ? 0 : 1;
}

std::u16string DefaultTextOf(const std::u16string& key) {
  char16_t text[1024] = u"";
  platform::DWORD size = sizeof text;
  const auto status = platform::RegGetValueW(platform::HKEY_CURRENT_USER, key.c_str(), nullptr, platform::RRF_RT_REG_SZ,
                                             nullptr, text, &size);
  return status == 0 ? text : u"";
}

// Prints "<subkey>: <text>" for each subkey whose text, below `tail`, holds `marker`.
void PrintSubKeys(const std::u16string& path, const std::u16string& tail, std::u16string_view marker) {
  platform::UniqueKey key;
  if (platform::RegOpenKeyExW(platform::HKEY_CURRENT_USER, path.c_str(), 0, platform::KEY_READ, key.put()) != 0) return;
  char16_t name[platform::MAX_PATH];
  for (platform::DWORD i = 0; platform::RegEnumKeyW(key.get(), i, name, platform::MAX_PATH) == 0; ++i) {
    const std::u16string text = DefaultTextOf(path + u"\\" + name + tail);
    if (text.find(marker) == text.npos) continue;
    std::cout << support::Narrow(name) << ": " << support::Narrow(text) << '\n';
  }
}

int PrintRegistrations() {
  PrintSubKeys(u"Software\\Classes", u"\\shell\\open\\command", u"lumenar-url-protocol-launch-helper");
  PrintSubKeys(u"Software\\Mozilla\\ManagedStorage", u"", u"data.json");
  std::cout << std::flush;
  return 0;
}

// There is no event for a window that appears in another process; so this looks again and again, for a bounded time.
// An answer shows that the resident has come to its message loop.
int AwaitResident() {
  const platform::UniqueEvent never(platform::CreateEventW(nullptr, true, false, nullptr));
  const auto deadline = std::chrono::steady_clock::now() + kLongestStart;
  while (std::chrono::steady_clock::now() < deadline) {
    if (const platform::HWND window = platform::FindWindowW(kResidentClass, nullptr)) {
      return platform::SendMessageTimeoutW(window, platform::WM_NULL, 0, 0, platform::SMTO_ABORTIFHUNG, kLongestAnswer,
                                           nullptr) != 0
                 ? 0
                 : 1;
    }
    platform::WaitForSingleObject(never.get(), kStep);
  }
  return 1;
}

int EndResident() {
  const platform::HWND window = platform::FindWindowW(kResidentClass, nullptr);
  return window && platform::PostMessageW(window, platform::WM_DESTROY, 0, 0) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc == 2 ? argv[1] : "";
  if (verb == "places") return PrintPlaces();
  if (verb == "data-folder") return PrintDataFolder();
  if (verb == "registrations") return PrintRegistrations();
  if (verb == "await-resident") return AwaitResident();
  if (verb == "end-resident") return EndResident();
  std::cerr << "usage: standInProbe places|data-folder|registrations|await-resident|end-resident\n";
  return 2;
}
