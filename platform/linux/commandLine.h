// Command lines: between one text and a list of arguments, by the system's quoting rules.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform::commandLine {

// The environment variable in which a started process gets its command line as its starter spelled it.
inline constexpr char kVariable[] = "LUMENAR_COMMAND_LINE";

// The arguments of a command line that is not empty. The first follows the rule for the program's name: a quoted one
// ends at the next quote, whatever stands in front of it; another ends at a blank.
[[nodiscard]] std::vector<std::u16string> Split(std::u16string_view line);
// A command line that splits into these arguments. REQUIRES: no quote in the first.
[[nodiscard]] std::u16string Join(const std::vector<std::u16string>& arguments);

// The machine's path of the running program's file; empty when it cannot be told.
[[nodiscard]] std::u16string PathOfThisProgram();

}  // namespace platform::commandLine
