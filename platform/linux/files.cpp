#include "platform/files.h"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/environment.h"
#include "platform/linux/faults.h"
#include "platform/linux/machine.h"
#include "platform/linux/wholeFile.h"

namespace platform {

struct TextStream {
  Descriptor file;
  std::string pending;  // Written when the stream is closed, in one piece, so that writers do not mix.
};

TextStream* _wfopen(const char16_t* path, const char16_t* mode) noexcept try {
  if (FaultInjected("_wfopen")) return nullptr;
  if (mode != std::u16string_view(u"a+")) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const auto hostPath = machine::HostPath(path);
  if (!hostPath) return nullptr;
  auto stream = std::make_unique<TextStream>();
  stream->file = Descriptor(open(hostPath->c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644));
  return stream->file ? stream.release() : nullptr;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

int fputws(const char16_t* text, TextStream* stream) noexcept try {
  if (FaultInjected("fputws")) return -1;
  for (const char16_t unit : std::u16string_view(text)) {
    if (unit > 0xFF) return -1;
    if (unit == u'\n') stream->pending += '\r';
    stream->pending += static_cast<char>(unit);
  }
  return 0;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return -1;
}

int fclose(TextStream* stream) noexcept {
  const std::unique_ptr<TextStream> closed(stream);
  if (FaultInjected("fclose")) return -1;  // What was pending is lost, but the stream is closed all the same.
  return WriteAll(closed->file.get(), closed->pending) ? 0 : -1;
}

DWORD GetTempPathW(DWORD size, char16_t* path) noexcept try {
  if (FaultInjected("GetTempPathW")) return 0;
  const std::u16string folder = environment::ProfileFolder() + u"\\Temp\\";
  const auto hostPath = machine::HostPath(folder);
  if (!hostPath) return 0;
  // Nobody installs this machine, so the folder is made when it is first asked for. Who cannot make it cannot use it
  // either, and will find out.
  std::error_code ignored;
  std::filesystem::create_directories(*hostPath, ignored);
  if (size <= folder.size()) return static_cast<DWORD>(folder.size() + 1);
  std::copy_n(folder.c_str(), folder.size() + 1, path);
  return static_cast<DWORD>(folder.size());
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

}  // namespace platform
