#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace support {
namespace {

// A hive is written as a whole for each value, and a disk makes each of these writes wait for it; memory does not.
// Where no program may be started from there, or the environment names a folder, the machine is made in the usual
// place.
std::filesystem::path PlaceForMachines() {
  constexpr const char* kMemory = "/dev/shm";
  struct statvfs place = {};
  const bool usable = std::getenv("TMPDIR") == nullptr && statvfs(kMemory, &place) == 0 &&
                      (place.f_flag & ST_NOEXEC) == 0 && access(kMemory, W_OK) == 0;
  return usable ? std::filesystem::path(kMemory) : std::filesystem::temp_directory_path();
}

}  // namespace

Machine::Machine() {
  std::string pattern = (PlaceForMachines() / "lumenar-machine-XXXXXX").string();
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
