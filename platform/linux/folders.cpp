#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/linux/ansi.h"
#include "platform/linux/environment.h"
#include "platform/linux/faults.h"
#include "platform/linux/results.h"

namespace platform {
namespace {

bool IsSeparator(char unit) { return unit == '\\' || unit == '/'; }

// The path's parts below its root, without "." and with ".." carried out; ".." takes none of the first `kept`.
std::vector<std::string_view> PartsOf(std::string_view path, std::size_t kept) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    const auto length = static_cast<std::size_t>(std::ranges::find_if(path, IsSeparator) - path.begin());
    const std::string_view part = path.substr(0, length);
    path.remove_prefix(std::min(length + 1, path.size()));
    if (part == "..") {
      if (parts.size() > kept) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
  }
  return parts;
}

// Absolute, with backslashes; a backslash at the end stays. The machine's current folder is always the root of its
// drive.
std::string Qualified(std::string_view path) {
  std::string root = "C:\\";
  std::size_t kept = 0;
  if (path.size() >= 2 && path[1] == ':') {
    root[0] = path[0];
    path.remove_prefix(2);
  } else if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
    root = "\\\\";
    kept = 2;  // The server and its share.
    path.remove_prefix(2);
  }
  std::string qualified = root;
  for (const std::string_view part : PartsOf(path, kept)) {
    if (qualified.size() > root.size()) qualified += '\\';
    qualified += part;
  }
  if (!path.empty() && IsSeparator(path.back()) && qualified.size() > root.size()) qualified += '\\';
  // No name ends in dots or spaces: the system drops them at a path's end.
  while (qualified.size() > root.size() && (qualified.back() == '.' || qualified.back() == ' ')) qualified.pop_back();
  return qualified;
}

}  // namespace

HRESULT SHGetFolderPathW(std::nullptr_t, int folder, std::nullptr_t, DWORD flags, char16_t* path) noexcept try {
  if (FaultInjected("SHGetFolderPathW")) return E_FAIL;
  if (folder != CSIDL_LOCAL_APPDATA || flags != 0) return E_INVALIDARG;
  const std::u16string text = environment::ProfileFolder() + u"\\AppData\\Local";
  if (text.size() >= MAX_PATH) return E_FAIL;
  path[text.copy(path, MAX_PATH - 1)] = u'\0';
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT SHGetKnownFolderPath(const KNOWNFOLDERID& folder, DWORD flags, std::nullptr_t, char16_t** path) noexcept try {
  *path = nullptr;
  if (FaultInjected("SHGetKnownFolderPath")) return E_FAIL;
  if (flags != 0) return E_INVALIDARG;
  std::u16string text;
  if (folder == FOLDERID_Documents) {
    text = environment::ProfileFolder() + u"\\Documents";
  } else if (folder == FOLDERID_ProgramFiles) {
    text = u"C:\\Program Files";
  } else {
    return E_FILE_NOT_FOUND;
  }
  auto* const memory = static_cast<char16_t*>(std::malloc((text.size() + 1) * sizeof(char16_t)));
  if (memory == nullptr) return E_OUTOFMEMORY;
  std::copy_n(text.c_str(), text.size() + 1, memory);
  *path = memory;
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

void CoTaskMemFree(void* memory) noexcept { std::free(memory); }

HRESULT PathCchAppend(char16_t* path, std::size_t size, const char16_t* more) noexcept try {
  if (FaultInjected("PathCchAppend")) return E_INSUFFICIENT_BUFFER;
  std::u16string result(path);
  std::u16string_view appended(more);
  if (appended.starts_with(u'\\')) appended.remove_prefix(1);
  if (!result.empty() && !result.ends_with(u'\\')) result += u'\\';
  result += appended;
  if (result.size() >= size) return E_INSUFFICIENT_BUFFER;
  path[result.copy(path, result.size())] = u'\0';
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

DWORD ExpandEnvironmentStringsA(const char* text, char* expanded, DWORD size) noexcept try {
  if (FaultInjected("ExpandEnvironmentStringsA")) return 0;
  const std::string result = ansi::FromWide(environment::Expand(ansi::ToWide(text)));
  if (result.size() < size) std::copy_n(result.c_str(), result.size() + 1, expanded);
  return static_cast<DWORD>(result.size() + 1);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

bool PathSearchAndQualifyA(const char* path, char* qualified, UINT size) noexcept try {
  if (FaultInjected("PathSearchAndQualifyA")) return false;
  const std::string result = Qualified(path);
  if (result.size() >= size) return false;
  std::copy_n(result.c_str(), result.size() + 1, qualified);
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

}  // namespace platform
