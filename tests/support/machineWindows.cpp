#include <initializer_list>

#include "tests/support/machine.h"

namespace support {
namespace {

constexpr const char16_t* kFolder = u"C:\\lumenar-test\\";

void ClearRegistry() {
  for (const Hive hive : {Hive::User, Hive::Machine}) {
    for (const char16_t* key : {u"Software\\Corvane", u"Software\\Tavrix, Inc.", u"Software\\Policies\\Corvane",
                                u"Software\\Policies\\Tavrix, Inc.", u"Software\\Wow6432Node\\Corvane",
                                u"Software\\Wow6432Node\\Tavrix, Inc.", u"Software\\LumenarTest"}) {
      DeleteKey(hive, key);
    }
  }
}

}  // namespace

Machine::Machine() : folder_(kFolder) {
  ClearRegistry();
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
}

Machine::~Machine() {
  ClearRegistry();
  std::error_code ignored;  // A process that is just ending may still hold a file.
  std::filesystem::remove_all(folder_, ignored);
}

std::u16string Machine::Folder() const { return kFolder; }

std::filesystem::path Machine::HostFolder() const { return folder_; }

std::filesystem::path Machine::HostPath(std::u16string_view machinePath) const { return machinePath; }

}  // namespace support
