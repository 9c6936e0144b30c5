#include "platform/linux/commandLine.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/machine.h"
#include "platform/shell.h"

namespace platform {
namespace commandLine {
namespace {

bool IsBlank(char16_t unit) { return unit == u' ' || unit == u'\t'; }

void SkipBlanks(std::u16string_view& line) {
  while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
}

std::size_t CountFront(std::u16string_view line, char16_t unit) {
  return std::min(line.find_first_not_of(unit), line.size());
}

std::u16string TakeProgramName(std::u16string_view& line) {
  const bool quoted = line.starts_with(u'"');
  if (quoted) line.remove_prefix(1);
  const std::size_t end = std::min(quoted ? line.find(u'"') : line.find_first_of(u" \t"), line.size());
  std::u16string name(line.substr(0, end));
  line.remove_prefix(std::min(line.size(), end + (quoted ? 1 : 0)));
  return name;
}

std::u16string TakeArgument(std::u16string_view& line) {
  std::u16string argument;
  std::size_t open = 0;  // Quotes that are open: 0 or 1.
  while (!line.empty() && (open != 0 || !IsBlank(line.front()))) {
    if (const std::size_t backslashes = CountFront(line, u'\\'); backslashes != 0) {
      line.remove_prefix(backslashes);
      const bool ahead = line.starts_with(u'"');  // Only ahead of a quote a backslash is more than itself.
      argument.append(ahead ? backslashes / 2 : backslashes, u'\\');
      if (ahead && backslashes % 2 != 0) {
        argument += u'"';
        line.remove_prefix(1);
      }
    }
    if (const std::size_t quotes = CountFront(line, u'"'); quotes != 0) {
      line.remove_prefix(quotes);
      // Of a run of quotes, the one that opens included, every third is meant as such, and closes; of two that are
      // left over the second closes.
      argument.append((open + quotes) / 3, u'"');
      open = (open + quotes) % 3 == 1 ? 1 : 0;
    } else if (!line.empty() && line.front() != u'\\' && (open != 0 || !IsBlank(line.front()))) {
      argument += line.front();
      line.remove_prefix(1);
    }
  }
  return argument;
}

std::u16string Quoted(std::u16string_view argument) {
  if (!argument.empty() && argument.find_first_of(u" \t\"") == argument.npos) return std::u16string(argument);
  std::u16string quoted = u"\"";
  std::size_t backslashes = 0;
  for (const char16_t unit : argument) {
    if (unit == u'"') quoted.append(backslashes + 1, u'\\');
    backslashes = unit == u'\\' ? backslashes + 1 : 0;
    quoted += unit;
  }
  return quoted.append(backslashes, u'\\') + u'"';
}

// The arguments that the host started this process with, one text with a NUL behind each. They lie behind one another,
// and stay, whatever the program does to its list of them.
constinit std::string_view hostArguments;

// The host's C library calls initialisers with what main gets.
[[gnu::constructor]] void KeepHostArguments(int count, char** texts) {
  if (count <= 0) return;
  const char* const last = texts[count - 1];
  hostArguments = {texts[0], last + std::strlen(last) + 1};
}

std::vector<std::string> HostArguments() {
  std::vector<std::string> arguments;
  for (std::string_view rest = hostArguments; !rest.empty(); rest.remove_prefix(arguments.back().size() + 1)) {
    arguments.emplace_back(rest.substr(0, rest.find('\0')));
  }
  return arguments;
}

// What the starter passed, unless it is another process's: the variable is inherited by whoever is started otherwise.
std::optional<std::u16string> PassedLine(const std::vector<std::string>& given) {
  const char* variable = std::getenv(kVariable);
  if (variable == nullptr || *variable == '\0') return std::nullopt;
  std::u16string line = machine::FromHost(variable);
  const bool ours = std::ranges::equal(Split(line), given, {},
                                       [](const std::u16string& argument) { return machine::ToHost(argument); });
  return ours ? std::optional(std::move(line)) : std::nullopt;
}

std::u16string LineOfThisProcess() {
  const std::vector<std::string> given = HostArguments();
  if (auto passed = PassedLine(given)) return std::move(*passed);
  std::vector<std::u16string> arguments;
  for (const std::string& argument : given) arguments.push_back(machine::FromHost(argument));
  return Join(arguments);
}

// Pointers, a null, then the texts, in one block.
char16_t** InOneBlock(const std::vector<std::u16string>& arguments) {
  std::size_t units = 0;
  for (const std::u16string& argument : arguments) units += argument.size() + 1;
  const std::size_t pointers = (arguments.size() + 1) * sizeof(char16_t*);
  auto* const block = static_cast<char*>(std::malloc(pointers + units * sizeof(char16_t)));
  if (block == nullptr) throw std::bad_alloc();
  auto** const list = reinterpret_cast<char16_t**>(block);
  auto* text = reinterpret_cast<char16_t*>(block + pointers);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    list[i] = text;
    text = std::copy_n(arguments[i].c_str(), arguments[i].size() + 1, text);
  }
  list[arguments.size()] = nullptr;
  return list;
}

}  // namespace

std::u16string PathOfThisProgram() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return machine::MachinePath(std::string_view(path, length > 0 ? static_cast<std::size_t>(length) : 0));
}

std::vector<std::u16string> Split(std::u16string_view line) {
  std::vector<std::u16string> arguments{TakeProgramName(line)};
  for (SkipBlanks(line); !line.empty(); SkipBlanks(line)) arguments.push_back(TakeArgument(line));
  return arguments;
}

std::u16string Join(const std::vector<std::u16string>& arguments) {
  std::u16string line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i != 0) line += u' ';
    line += i == 0 ? u'"' + arguments[i] + u'"' : Quoted(arguments[i]);
  }
  return line;
}

}  // namespace commandLine

const char16_t* GetCommandLineW() noexcept try {
  static const std::u16string& line = *new std::u16string(commandLine::LineOfThisProcess());
  return line.c_str();
} catch (const std::bad_alloc&) {
  return u"";
}

char16_t** CommandLineToArgvW(const char16_t* line, int* count) noexcept try {
  if (FaultInjected("CommandLineToArgvW")) return nullptr;
  if (line == nullptr || count == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const std::vector<std::u16string> arguments =
      *line == u'\0' ? std::vector{commandLine::PathOfThisProgram()} : commandLine::Split(line);
  char16_t** const list = commandLine::InOneBlock(arguments);
  *count = static_cast<int>(arguments.size());
  return list;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

void LocalFree(void* memory) noexcept { std::free(memory); }

}  // namespace platform
