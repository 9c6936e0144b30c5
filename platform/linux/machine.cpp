#include "platform/linux/machine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <set>
#include <vector>

#include "platform/error.h"
#include "platform/linux/hostError.h"

namespace platform::machine {
namespace {

constexpr std::string_view kDrive = "/drive_c";

bool MakeFolder(const std::string& path) { return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST; }

// Makes the folder, and those above it that are missing.
bool MakeFolders(const std::string& path) {
  if (MakeFolder(path)) return true;
  if (errno != ENOENT) return false;
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return false;
  return MakeFolders(path.substr(0, slash)) && MakeFolder(path);
}

// A variable that names an absolute folder, without slashes at its end. Anything else counts as not set.
std::string FolderFromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);
  std::string folder = value != nullptr && value[0] == '/' ? value : "";
  while (folder.ends_with('/')) folder.pop_back();
  return folder;
}

// Under /tmp anyone could have made the folder first, so it is used only when nobody else can reach into it.
bool IsPrivate(const std::string& folder) {
  struct stat status;
  if (lstat(folder.c_str(), &status) != 0) return false;
  errno = EACCES;
  return S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & 077) == 0;
}

// The folders that this process has made or found once: nobody takes a machine's folders away while it is in use, so
// the host need not be asked at each call.
class KnownFolders {
 public:
  [[nodiscard]] bool Contain(const std::string& folder) {
    const std::lock_guard guard(lock_);
    return folders_.contains(folder);
  }
  void Add(const std::string& folder) {
    const std::lock_guard guard(lock_);
    folders_.insert(folder);
  }

 private:
  std::mutex lock_;
  std::set<std::string> folders_;
};

// Never destroyed: threads may still look for folders while the process's statics go.
KnownFolders& TheKnownFolders() {
  static KnownFolders& folders = *new KnownFolders;
  return folders;
}

std::string Failed() {
  SetLastError(ErrorFromHost(errno));
  return {};
}

bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }

bool IsForbidden(char16_t unit) { return unit < 0x20 || std::u16string_view(u"<>:\"|?*").contains(unit); }

std::nullopt_t Refuse(DWORD error) {
  SetLastError(error);
  return std::nullopt;
}

// The names of a path below the drive, without "." and "..", as far as they go; the drive's root has no parent.
std::vector<std::u16string_view> NamesOf(std::u16string_view path) {
  std::vector<std::u16string_view> names;
  while (!path.empty()) {
    std::size_t end = 0;
    while (end < path.size() && !IsSeparator(path[end])) ++end;
    const std::u16string_view name = path.substr(0, end);
    path.remove_prefix(end == path.size() ? end : end + 1);
    if (name == u"..") {
      if (!names.empty()) names.pop_back();
    } else if (!name.empty() && name != u".") {
      names.push_back(name);
    }
  }
  return names;
}

}  // namespace

std::string DataFolder() {
  std::string folder = FolderFromEnvironment("XDG_DATA_HOME");
  if (folder.empty()) {
    folder = FolderFromEnvironment("HOME");
    if (folder.empty()) {
      SetLastError(ERROR_PATH_NOT_FOUND);
      return {};
    }
    folder += "/.local/share";
  }
  folder += "/lumenar/machine";
  if (TheKnownFolders().Contain(folder)) return folder;
  if (!MakeFolders(folder)) return Failed();
  TheKnownFolders().Add(folder);
  return folder;
}

std::string RuntimeFolder(std::string_view name) {
  std::string folder = FolderFromEnvironment("XDG_RUNTIME_DIR");
  folder += folder.empty() ? "/tmp/lumenar-" + std::to_string(geteuid()) : "/lumenar";
  const std::string named = (folder + '/').append(name);
  if (TheKnownFolders().Contain(named)) return named;
  if (!MakeFolders(folder) || !IsPrivate(folder) || !MakeFolder(named)) return Failed();
  TheKnownFolders().Add(named);
  return named;
}

std::optional<std::string> HostPath(std::u16string_view machinePath) {
  if (machinePath.size() >= MAX_PATH) return Refuse(ERROR_FILENAME_EXCED_RANGE);
  if (machinePath.size() < 3 || machinePath[1] != u':' || !IsSeparator(machinePath[2])) {
    return Refuse(ERROR_PATH_NOT_FOUND);
  }
  const int drive = machinePath[0] | 0x20;
  if (drive != u'c' && drive != u'z') return Refuse(ERROR_PATH_NOT_FOUND);
  std::u16string_view below = machinePath.substr(3);
  // No name ends in dots or spaces: the system drops them at a path's end.
  while (below.ends_with(u'.') || below.ends_with(u' ')) {
    if (NamesOf(below).empty() || below.ends_with(u"\\..") || below.ends_with(u"/..") || below == u"..") break;
    below.remove_suffix(1);
  }
  std::string path;
  if (drive == u'c') {
    path = DataFolder();
    if (path.empty()) return std::nullopt;
    path += kDrive;
  }
  for (const std::u16string_view name : NamesOf(below)) {
    for (const char16_t unit : name) {
      if (IsForbidden(unit)) return Refuse(ERROR_INVALID_NAME);
    }
    path += '/';
    path += ToHost(name);
  }
  return path.empty() ? "/" : path;
}

std::u16string MachinePath(std::string_view hostPath) {
  if (!hostPath.starts_with('/') || hostPath.find('\\') != hostPath.npos) return {};
  std::string drive = DataFolder() + std::string(kDrive);
  // The host names the files of running programs by the folder's real path.
  if (char* const real = realpath(drive.c_str(), nullptr)) {
    if (!hostPath.starts_with(drive + "/")) drive = real;
    std::free(real);
  }
  const bool onDrive = hostPath.starts_with(drive + "/");
  std::u16string path = (onDrive ? u"C:" : u"Z:") + FromHost(onDrive ? hostPath.substr(drive.size()) : hostPath);
  for (char16_t& unit : path) unit = unit == u'/' ? u'\\' : unit;
  return path;
}

}  // namespace platform::machine
