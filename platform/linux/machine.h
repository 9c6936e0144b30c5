// The machine in a folder: where its hives, its drive and its meeting points lie.
//
//   $XDG_DATA_HOME/lumenar/machine/    machine.reg, user.reg, drive_c/      (default ~/.local/share)
//   $XDG_RUNTIME_DIR/lumenar/          windows/, objects/, endpoints/       (default a 0700 folder under /tmp)
//
// The folders are looked up in the environment at each call, so that a test can move from one machine to the next. Each
// is made once in a process's life, and must then stay.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::machine {

// The folder of the machine, and the folder of that name among its meeting points, made when missing (0700). Absolute,
// without a slash at the end. Empty, with the last error set, when it cannot be made.
[[nodiscard]] std::string DataFolder();
[[nodiscard]] std::string RuntimeFolder(std::string_view name);

// The path of the host for a path of the machine: "C:\a\b" lies under drive_c/, and "Z:\a\b" is the host's own /a/b,
// for programs that are not installed on the machine's drive. Backslashes and slashes separate, case is kept. Nothing,
// with the system's error, for a path that is not absolute on one of these drives, is too long, or has names that no
// Windows volume takes.
[[nodiscard]] std::optional<std::string> HostPath(std::u16string_view machinePath);
// The other way about; empty for a path that is not absolute, or has names with backslashes.
[[nodiscard]] std::u16string MachinePath(std::string_view hostPath);

// UTF-16 to UTF-8 and back, unit for unit: a lone surrogate becomes its three-byte form and returns from it, and a byte
// that is no UTF-8 becomes the unit U+DC80 to U+DCFF and returns from it. So every name of either side survives the
// way.
[[nodiscard]] std::string ToHost(std::u16string_view text);
[[nodiscard]] std::u16string FromHost(std::string_view text);

}  // namespace platform::machine
