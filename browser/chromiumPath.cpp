#include "browser/chromiumPath.h"

#include <regex>

#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "platform/text.h"

namespace browser {
namespace {

using debugLog::TraceViaHelper;
using settings::BrowserType;

// The expressions are compiled once, when a path is first parsed: a launcher never parses one.

// By the library's other matcher: the usual one nests once for each character of a name, and a policy's text may be
// half a million characters long.
const std::regex& ChromiumVariableRegex() {
  static const std::regex expression(R"(\$\{[a-z]+(_[a-z]+)*\})",
                                     std::regex::ECMAScript | std::regex_constants::__polynomial);
  return expression;
}

const std::regex& InvalidPathCharsRegex() {
  static const std::regex expression(R"([:*?"<>|])", std::regex::ECMAScript);
  return expression;
}

const std::regex& DriveLetterRegex() {
  static const std::regex expression("^[a-zA-Z]:", std::regex::ECMAScript);
  return expression;
}

const std::regex& UncPathRegex() {
  static const std::regex expression(R"(^\\)", std::regex::ECMAScript);
  return expression;
}

// Below the program files folder, by browser.
constexpr const char* BrowserApplicationSubPath[] = {"\\Google\\Chrome\\Application\\",
                                                     "\\Microsoft\\Edge\\Application\\"};
constexpr const char* kDrive = "C:\\";
constexpr std::size_t kPathBuffer = 260;

bool HasDrive(const std::string& path) { return std::regex_search(path, DriveLetterRegex()); }

bool IsRooted(const std::string& path) { return HasDrive(path) || std::regex_search(path, UncPathRegex()); }

ChromiumVariableTable BuildChromiumVariableTable() {
  return {{"${machine_name}", "%COMPUTERNAME%"},
          {"${user_name}", "%USERNAME%"},
          {"${client_name}", "%CLIENTNAME%"},
          {"${documents}", ""},
          {"${global_app_data}", "%PROGRAMDATA%"},
          {"${local_app_data}", "%LOCALAPPDATA%"},
          {"${profile}", "%USERPROFILE%"},
          {"${program_files}", "%PROGRAMFILES%"},
          {"${roaming_app_data}", "%APPDATA%"},
          {"${session_name}", "%SESSIONNAME%"},
          {"${windows}", "%WINDIR%"}};
}

// Every variable of the path that can be expanded, with its value.
std::map<std::string, std::string> FindVariables(const std::string& path) {
  const ChromiumVariableTable table = BuildChromiumVariableTable();
  std::map<std::string, std::string> found;
  const auto end = std::sregex_iterator();
  for (auto match = std::sregex_iterator(path.begin(), path.end(), ChromiumVariableRegex()); match != end; ++match) {
    const std::string variable = match->str();
    std::string value;
    if (!found.contains(variable) && ExpandEnvVariable(variable, table, value)) found.emplace(variable, value);
  }
  return found;
}

std::string ReplaceAll(const std::string& text, const std::string& what, const std::string& by) {
  std::string replaced;
  std::size_t from = 0;
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, from)) {
    replaced.append(text, from, at - from).append(by);
    from = at + what.size();
  }
  return replaced.append(text, from);
}

bool ExpandByEnvironment(const std::string& text, std::string& value) {
  char buffer[kPathBuffer] = {};
  const platform::DWORD size = platform::ExpandEnvironmentStringsA(text.c_str(), buffer, sizeof buffer);
  if (size == 0 || size > sizeof buffer) return false;  // What does not fit is no usable text.
  value = buffer;
  return true;
}

}  // namespace

bool ParseChromiumUserDataDirString(BrowserType browser, std::string& path) {
  constexpr const char* kOperation = "ParseChromiumUserDataDirString";
  if (browser == BrowserType::Firefox || path.empty()) return false;
  const std::string vetted = HasDrive(path) ? path.substr(2) : path;  // The drive's colon is the one that is allowed.
  if (std::regex_search(vetted, InvalidPathCharsRegex())) {
    TraceViaHelper(u"%S: Invalid characters found in path string.\n", kOperation);
    return false;
  }
  FormatPathStr(path);
  ExpandChromiumEnvVariableInPath(path);
  if (IsRooted(path)) return true;

  std::string programFiles;
  if (!GetKnownFolderPath(platform::FOLDERID_ProgramFiles, programFiles)) {
    TraceViaHelper(u"%S: Failed to retrieve the full path of Program Files.\n", kOperation);
    return false;
  }
  path = programFiles + BrowserApplicationSubPath[static_cast<std::size_t>(browser)] + path;
  return true;
}

void FormatPathStr(std::string& path) {
  const bool relative = !IsRooted(path);
  if (relative) path.insert(0, kDrive);
  char qualified[kPathBuffer];
  if (platform::PathSearchAndQualifyA(path.c_str(), qualified, sizeof qualified)) {
    path = qualified;
    TraceViaHelper(u"%S: Succeeded to format and qualify the given path \"%S\".\n", "FormatPathStr", path);
  }
  if (relative) path.erase(0, std::char_traits<char>::length(kDrive));
}

bool ExpandChromiumEnvVariableInPath(std::string& path) {
  constexpr const char* kOperation = "ExpandChromiumEnvVariableInPath";
  if (path.empty() || !std::regex_search(path, ChromiumVariableRegex())) {
    TraceViaHelper(u"%S: Path input is empty or no environment variable is contained.\n", kOperation);
    return false;
  }
  const auto found = FindVariables(path);
  if (found.empty()) {
    TraceViaHelper(u"%S: There is no matched variable in path string.\n", kOperation);
    return false;
  }
  for (const auto& [variable, value] : found) path = ReplaceAll(path, variable, value);
  return true;
}

bool ExpandEnvVariable(const std::string& variable, const ChromiumVariableTable& table, std::string& value) {
  constexpr const char* kOperation = "ExpandEnvVariable";
  const auto row = table.find(variable);
  if (row == table.end()) {
    TraceViaHelper(u"%S: The environment variable %S is not supported.\n", kOperation, variable);
    return false;
  }
  if (!row->second.empty()) {
    if (!ExpandByEnvironment(row->second, value)) {
      TraceViaHelper(u"%S: Failed to expand environment variable.\n", kOperation);
      return false;
    }
    TraceViaHelper(u"%S: Expand environment variable \"%S\" into \"%S\".\n", kOperation, variable, value);
  }
  if (variable == "${documents}") {
    if (!GetKnownFolderPath(platform::FOLDERID_Documents, value)) {
      TraceViaHelper(u"%S: Failed to retrieve the full path of Documents.\n", kOperation);
      return false;
    }
    TraceViaHelper(u"%S: Expand environment variable %S into: %S.\n", kOperation, variable, value);
  }
  return true;
}

bool GetKnownFolderPath(const platform::KNOWNFOLDERID& folder, std::string& value) {
  platform::UniqueTaskMemory<char16_t> path;
  if (platform::SHGetKnownFolderPath(folder, 0, nullptr, path.put()) < 0) {
    TraceViaHelper(u"%S: Failed to retrieve the full path of a known folder.\n", "GetKnownFolderPath");
    return false;
  }
  const std::u16string_view wide(path.get());
  const auto convert = [&wide](char* buffer, std::size_t size) {
    return platform::WideCharToMultiByte(platform::CP_THREAD_ACP, 0, wide.data(), static_cast<int>(wide.size()), buffer,
                                         static_cast<int>(size), nullptr, nullptr);
  };
  std::string narrow(wide.size() * 4, '\0');  // No code page takes more for a unit.
  int length = convert(narrow.data(), narrow.size());
  if (length == 0 && platform::GetLastError() == platform::ERROR_INSUFFICIENT_BUFFER) {
    narrow.resize(static_cast<std::size_t>(convert(nullptr, 0)));
    length = convert(narrow.data(), narrow.size());
  }
  narrow.resize(static_cast<std::size_t>(length));
  value = std::move(narrow);
  return true;
}

}  // namespace browser
