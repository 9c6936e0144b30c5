#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "platform/files.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/faults.h"
#include "platform/linux/handleTable.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"

namespace platform {
namespace {

constexpr DWORD ERROR_DISK_FULL = 112;

class File final : public KernelObject {
 public:
  explicit File(Descriptor file) noexcept : file_(std::move(file)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "File"; }
  [[nodiscard]] int Get() const noexcept { return file_.get(); }

 private:
  Descriptor file_;
};

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

using HostFolder = std::unique_ptr<DIR, CloseFolder>;

class Listing final : public KernelObject {
 public:
  explicit Listing(HostFolder folder) noexcept : folder_(std::move(folder)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Find"; }

  // False, with the last error set, behind the last entry.
  bool Next(WIN32_FIND_DATAW* data) {
    while (const dirent* entry = readdir(folder_.get())) {
      const std::u16string name = machine::FromHost(entry->d_name);
      if (name.size() >= MAX_PATH) continue;  // No name that the machine could have made.
      struct stat status {};
      const bool known = fstatat(dirfd(folder_.get()), entry->d_name, &status, 0) == 0;
      *data = {};
      data->dwFileAttributes = known && S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
      std::ranges::copy(name, data->cFileName);
      return true;
    }
    SetLastError(ERROR_NO_MORE_FILES);
    return false;
  }

 private:
  HostFolder folder_;
};

// On the disk, or of what the user, or a file, may take of it.
bool HasNoRoom(int hostError) { return hostError == ENOSPC || hostError == EDQUOT || hostError == EFBIG; }

FileHandle Fail(int hostError) noexcept {
  SetLastError(ErrorFromHost(hostError));
  return {};
}

}  // namespace

FileHandle CreateFileW(const char16_t* path, DWORD access, DWORD sharing, std::nullptr_t, DWORD disposition,
                       DWORD attributes, std::nullptr_t) noexcept try {
  if (FaultInjected("CreateFileW")) return {};
  if (access != GENERIC_WRITE || sharing != 0 || disposition != CREATE_ALWAYS || attributes != FILE_ATTRIBUTE_NORMAL) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const auto hostPath = machine::HostPath(path);
  if (!hostPath) return {};
  // Emptied only once it is ours alone: whoever else has it open keeps the content.
  Descriptor file(open(hostPath->c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644));
  if (!file) {
    if (errno != ENOENT) return Fail(errno == EISDIR ? EACCES : errno);
    SetLastError(ERROR_PATH_NOT_FOUND);  // What is missing is a folder: the file would have been made.
    return {};
  }
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    SetLastError(ERROR_SHARING_VIOLATION);
    return {};
  }
  if (ftruncate(file.get(), 0) != 0) return Fail(errno);
  return FileHandle(handleTable::Add(std::make_shared<File>(std::move(file))));
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

bool WriteFile(FileHandle handle, const void* data, DWORD size, DWORD* written, std::nullptr_t) noexcept {
  *written = 0;
  if (FaultInjected("WriteFile")) return false;
  const auto file = handleTable::FindAs<File>(handle.value());
  if (!file) return false;
  while (*written < size) {
    const ssize_t count = write(file->Get(), static_cast<const char*>(data) + *written, size - *written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      SetLastError(HasNoRoom(errno) ? ERROR_DISK_FULL : ErrorFromHost(errno));
      return false;
    }
    *written += static_cast<DWORD>(count);
  }
  return true;
}

bool DeleteFileW(const char16_t* path) noexcept try {
  if (FaultInjected("DeleteFileW")) return false;
  const auto hostPath = machine::HostPath(path);
  if (!hostPath) return false;
  if (unlink(hostPath->c_str()) == 0) return true;
  SetLastError(ErrorFromHost(errno == EISDIR ? EACCES : errno));
  return false;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

FindHandle FindFirstFileW(const char16_t* pattern, WIN32_FIND_DATAW* data) noexcept try {
  if (FaultInjected("FindFirstFileW")) return {};
  const std::u16string_view text(pattern);
  if (!text.ends_with(u"\\*")) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const auto hostPath = machine::HostPath(text.substr(0, text.size() - 1));
  if (!hostPath) return {};
  HostFolder folder(opendir(hostPath->c_str()));
  if (!folder) {
    SetLastError(errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : ErrorFromHost(errno));
    return {};
  }
  auto listing = std::make_shared<Listing>(std::move(folder));
  if (!listing->Next(data)) return {};
  return FindHandle(handleTable::Add(std::move(listing)));
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

bool FindNextFileW(FindHandle find, WIN32_FIND_DATAW* data) noexcept try {
  if (FaultInjected("FindNextFileW")) return false;
  const auto listing = handleTable::FindAs<Listing>(find.value());
  return listing && listing->Next(data);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

bool FindClose(FindHandle find) noexcept { return handleTable::Close(find.value()); }

}  // namespace platform
