#include "platform/linux/namedObjects.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"

namespace platform::namedObjects {
namespace {

// A file name from which the object's name could be read back, so that no two names share a file.
std::string FileNameOf(std::u16string_view name) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string fileName;
  for (const char byte : machine::ToHost(name)) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '%' || byte == '/' || byte == '.' || value < 0x20 || value >= 0x7F) {
      fileName += {'%', kDigits[value >> 4], kDigits[value & 0xF]};
    } else {
      fileName += byte;
    }
  }
  return fileName;
}

bool Lock(const Descriptor& file, short type, int command) noexcept {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  int result = 0;
  do {
    result = fcntl(file.get(), command, &lock);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Whether somebody else holds a lock on the file.
bool IsHeld(const Descriptor& file) noexcept {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool FailedByHost() noexcept {
  SetLastError(ErrorFromHost(errno));
  return false;
}

}  // namespace

std::string PathOf(std::u16string_view name) {
  constexpr std::size_t kLongestFileName = 255;
  for (const std::u16string_view scope : {u"Local\\", u"Global\\"}) {
    if (name.starts_with(scope)) {
      name.remove_prefix(scope.size());  // There is but one session.
      break;
    }
  }
  const std::string fileName = FileNameOf(name);
  if (name.find(u'\\') != name.npos) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return {};
  }
  if (fileName.empty() || fileName.size() > kLongestFileName) {
    SetLastError(fileName.empty() ? ERROR_INVALID_NAME : ERROR_FILENAME_EXCED_RANGE);
    return {};
  }
  const std::string folder = machine::RuntimeFolder("objects");
  return folder.empty() ? std::string() : folder + "/" + fileName;
}

// Asks before it joins, as a lock on a name that nobody holds would look like an object; and once more behind that, as
// the last holder may have gone meanwhile.
std::optional<Opened> OpenExisting(const std::string& path) noexcept {
  Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  if (!file) {
    FailedByHost();
    return std::nullopt;
  }
  if (!IsHeld(file) || !Lock(file, F_RDLCK, F_OFD_SETLKW) || !IsHeld(file)) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return std::nullopt;
  }
  const auto kind = detail::ReadKind(file);
  if (!kind) return std::nullopt;
  return Opened{std::move(file), false, *kind};
}

namespace detail {

Descriptor OpenFile(const std::string& path) noexcept {
  Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) FailedByHost();
  return file;
}

// Whoever gets the exclusive lock was alone, hence the first; others find the lock of some holder, and join as soon as
// a first one has turned its lock into a shared one. That turn is one step of the host, so nobody gets in between.
Existence Join(const Descriptor& file) noexcept {
  if (Lock(file, F_WRLCK, F_OFD_SETLK)) return Existence::New;
  if ((errno == EAGAIN || errno == EACCES) && Lock(file, F_RDLCK, F_OFD_SETLKW)) return Existence::Existed;
  FailedByHost();
  return Existence::Failed;
}

bool Share(const Descriptor& file) noexcept { return Lock(file, F_RDLCK, F_OFD_SETLK) || FailedByHost(); }

bool WriteKind(const Descriptor& file, Kind kind) noexcept {
  const char letter = static_cast<char>(kind);
  return pwrite(file.get(), &letter, 1, 0) == 1 || FailedByHost();
}

// The first one may have given up while others waited for it; then there is nothing to join.
std::optional<Kind> ReadKind(const Descriptor& file) noexcept {
  char letter = 0;
  if (pread(file.get(), &letter, 1, 0) == 1) {
    for (const Kind kind : {Kind::Mutex, Kind::AutoResetEvent, Kind::ManualResetEvent}) {
      if (letter == static_cast<char>(kind)) return kind;
    }
  }
  SetLastError(ERROR_INVALID_HANDLE);
  return std::nullopt;
}

}  // namespace detail
}  // namespace platform::namedObjects
