#include <initializer_list>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/raii.h"
#include "tests/support/machine.h"

namespace support {
namespace {

constexpr const char16_t* kFolder = u"C:\\lumenar-test\\";

// The schemes among the hive's classes that tests make, and the program's own.
std::vector<std::u16string> TestSchemes(Hive hive) {
  const platform::HKEY root = hive == Hive::User ? platform::HKEY_CURRENT_USER : platform::HKEY_LOCAL_MACHINE;
  std::vector<std::u16string> schemes;
  platform::UniqueKey classes;
  if (platform::RegOpenKeyExW(root, u"Software\\Classes", 0, platform::KEY_READ, classes.put()) != 0) return schemes;
  char16_t name[platform::MAX_PATH];
  for (platform::DWORD i = 0; platform::RegEnumKeyW(classes.get(), i, name, platform::MAX_PATH) == 0; ++i) {
    const std::u16string_view scheme(name);
    if (scheme.starts_with(kTestScheme) || scheme == u"tavrix-prism-url-launch") schemes.emplace_back(scheme);
  }
  return schemes;
}

void ClearRegistry() {
  for (const Hive hive : {Hive::User, Hive::Machine}) {
    for (const char16_t* key :
         {u"Software\\Corvane", u"Software\\Tavrix, Inc.", u"Software\\Policies\\Corvane",
          u"Software\\Policies\\Tavrix, Inc.", u"Software\\Wow6432Node\\Corvane",
          u"Software\\Wow6432Node\\Tavrix, Inc.", u"Software\\LumenarTest", u"Software\\Mozilla\\ManagedStorage",
          u"Software\\Policies\\Google", u"Software\\Policies\\Microsoft\\Edge"}) {
      DeleteKey(hive, key);
    }
    for (const std::u16string& scheme : TestSchemes(hive)) DeleteKey(hive, u"Software\\Classes\\" + scheme);
  }
}

// What browsers would have in the user's local application data.
void ClearDataFolders() {
  char16_t local[platform::MAX_PATH] = u"";
  if (platform::SHGetFolderPathW(nullptr, platform::CSIDL_LOCAL_APPDATA, nullptr, 0, local) < 0) return;
  std::error_code ignored;
  for (const char16_t* folder : {u"Google", u"Microsoft\\Edge", u"Mozilla"}) {
    std::filesystem::remove_all(std::filesystem::path(local) / folder, ignored);
  }
}

void Clear() {
  ClearRegistry();
  ClearDataFolders();
}

}  // namespace

Machine::Machine() : folder_(kFolder) {
  Clear();
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
}

Machine::~Machine() {
  Clear();
  std::error_code ignored;  // A process that is just ending may still hold a file.
  std::filesystem::remove_all(folder_, ignored);
}

std::u16string Machine::Folder() const { return kFolder; }

std::filesystem::path Machine::HostFolder() const { return folder_; }

std::filesystem::path Machine::HostPath(std::u16string_view machinePath) const { return machinePath; }

}  // namespace support
