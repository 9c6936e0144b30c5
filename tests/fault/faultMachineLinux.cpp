#include "tests/fault/faultMachineLinux.h"

#include <fstream>
#include <iterator>
#include <regex>

#include "launcher/handOff.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/raii.h"
#include "platform/session.h"
#include "platform/window.h"

namespace fault {
namespace {

namespace files = std::filesystem;
using support::Hive;

// Puts the file back to what it was, as a whole: a resident helper may be watching it.
void PutBack(const files::path& file, const files::path& kept) {
  const auto bytes = [](const files::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
  };
  if (bytes(file) == bytes(kept)) return;
  const files::path passing = kept.string() + ".new";
  files::copy_file(kept, passing, files::copy_options::overwrite_existing);
  files::rename(passing, file);
}

constexpr const char16_t* kProduct = u"Software\\Corvane\\Lumenar";
constexpr const char16_t* kScheme = u"Software\\Corvane\\Lumenar\\URLRedirection\\walked";
constexpr const char16_t* kPolicy = u"Software\\Policies\\Corvane\\Lumenar\\URLRedirection\\apppath";

void WriteRoot(Hive hive, std::u16string_view origin) {
  support::SetText(hive, kRoot, u"Origin", origin);
  support::SetNumber(hive, kRoot, u"Enabled", 1);
  support::SetNumber(hive, kRoot, u"DebugLog", 1);
  support::SetText(hive, kScheme, u"rules", u"*.first;second");
}

void WriteSettings(std::u16string_view origin, SettingsOf settings) {
  support::SetText(Hive::Machine, kProduct, u"ClientInstallPath", u"C:\\Client\\");
  WriteRoot(Hive::Machine, origin);
  if (settings == SettingsOf::MachineAndUser) WriteRoot(Hive::User, origin);
  support::SetText(Hive::Machine, kPolicy, u"allowlist", u"^(a|b)*((c|d)*)never;^apppathrd/path=");
  support::SetText(Hive::Machine, kPolicy, u"brokerHostname", u"host1");
  support::SetText(Hive::Machine, kPolicy, u"remoteItem", u"Calc");
  support::CreateKey(Hive::User, kProduct);  // Where the settings watcher watches.
  support::SetText(Hive::User, u"Software\\Classes\\fault\\shell\\open\\command", u"",
                   u"\"C:\\Client\\lumenar-client.exe\" \"%1\"");
}

std::u16string LogFolder() {
  char16_t folder[platform::MAX_PATH] = {};
  char16_t user[platform::MAX_PATH] = {};
  platform::DWORD size = platform::MAX_PATH;
  platform::GetTempPathW(platform::MAX_PATH, folder);
  platform::GetUserNameW(user, &size);
  return std::u16string(folder).append(u"corvane-").append(user);
}

std::u16string LocalFolder() {
  char16_t folder[platform::MAX_PATH] = {};
  platform::SHGetFolderPathW(nullptr, platform::CSIDL_LOCAL_APPDATA, nullptr, 0, folder);
  return folder;
}

}  // namespace

FaultMachine::FaultMachine(std::u16string_view origin, SettingsOf settings)
    : hives_(machine_.HostPath(u"C:").parent_path()), kept_(machine_.HostPath(u"C:\\kept")) {
  WriteSettings(origin, settings);
  files::create_directories(kept_);
  for (const char* hive : {"machine.reg", "user.reg"}) files::copy_file(hives_ / hive, kept_ / hive);
  const files::path client = machine_.HostPath(u"C:\\Client\\lumenar-client.exe");
  files::create_directories(client.parent_path());
  files::copy_file("/bin/true", client);  // It is started for most failures, so it is to cost nothing.
  logs_ = machine_.HostPath(LogFolder());
  files::create_directories(logs_);
  const files::path local = machine_.HostPath(LocalFolder());
  browsers_ = {local / "Google/Chrome/User Data/Default/Extensions/pgmkcoafbnjdeihlmkgobfajcpeidnhl/1.0",
               local / "Mozilla/Firefox/Profiles"};
  for (const files::path& browser : browsers_) files::create_directories(browser);
}

void FaultMachine::Restore() const {
  for (const char* hive : {"machine.reg", "user.reg"}) PutBack(hives_ / hive, kept_ / hive);
  for (const auto& log : files::directory_iterator(logs_)) files::remove(log);
  for (const files::path& browser : browsers_) files::remove(browser / "data.json");
}

std::vector<std::string> FaultMachine::LogTexts() const {
  std::string all;
  for (const auto& log : files::directory_iterator(logs_)) {
    std::ifstream stream(log.path(), std::ios::binary);
    all.append(std::istreambuf_iterator<char>(stream), {});
  }
  // A text without a line end runs on into the next stamp.
  static const std::regex stamp("[0-9]+-[0-9]{2}-[0-9]{2}  [0-9]{2}:[0-9]{2}:[0-9]{2}  ");
  std::vector<std::string> texts(std::sregex_token_iterator(all.begin(), all.end(), stamp, -1), {});
  std::erase_if(texts, [](const std::string& text) { return text.empty(); });
  for (std::string& text : texts) {
    while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
  }
  return texts;
}

files::path FaultMachine::ReportPath(const std::string& name) const { return kept_ / name; }

bool UserHas(const char16_t* path) {
  platform::UniqueKey key;
  platform::RegOpenKeyExW(platform::HKEY_CURRENT_USER, path, 0, platform::KEY_READ, key.put());
  return bool(key);
}

bool MutexIsFree() {
  const platform::UniqueMutex mutex(platform::CreateMutexW(nullptr, false, u"Corvane Lumenar URL Helper Mutex"));
  return platform::GetLastError() == platform::ERROR_SUCCESS;
}

bool EndResident() {
  const platform::HWND window = platform::FindWindowW(handOff::kHelperWindowClass, nullptr);
  return window && platform::PostMessageW(window, platform::WM_DESTROY, 0, 0);
}

}  // namespace fault
