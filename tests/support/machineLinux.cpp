#include <cstdlib>

#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace support {

Machine::Machine() {
  std::string pattern = (std::filesystem::temp_directory_path() / "lumenar-machine-XXXXXX").string();
  folder_ = mkdtemp(pattern.data());
  SetEnvironment("XDG_DATA_HOME", (folder_ / "data").string());
  SetEnvironment("XDG_RUNTIME_DIR", (folder_ / "run").string());
  std::filesystem::create_directories(folder_ / "run");
  std::filesystem::permissions(folder_ / "run", std::filesystem::perms::owner_all);
  std::filesystem::create_directories(HostFolder());
}

Machine::~Machine() { std::filesystem::remove_all(folder_); }

std::u16string Machine::Folder() const { return u"C:\\test\\"; }

std::filesystem::path Machine::HostFolder() const { return HostPath(Folder()); }

std::filesystem::path Machine::HostPath(std::u16string_view machinePath) const {
  std::string path = Narrow(machinePath.substr(2));
  for (char& unit : path) unit = unit == '\\' ? '/' : unit;
  return (folder_ / "data/lumenar/machine/drive_c").string() + path;
}

}  // namespace support
