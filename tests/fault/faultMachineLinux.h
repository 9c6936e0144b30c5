// A machine on which calls fail: furnished anew ahead of each run of a walk.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/machine.h"

namespace fault {

// The root of the redirection settings, in either hive.
inline constexpr const char16_t* kRoot = u"Software\\Corvane\\Lumenar\\URLRedirection";

// Whose redirection settings there are.
enum class SettingsOf : std::uint8_t { Machine, MachineAndUser };

class FaultMachine {
 public:
  // `origin` is "Client" or "Agent". The policy has a rule that does not match and needs a thread of its own for that,
  // and one that matches every app path. A URL of the scheme "fault" has a handler; the scheme "walked" is to be
  // redirected. Chrome has the extension, Edge does not, and Firefox's folder is there.
  explicit FaultMachine(std::u16string_view origin, SettingsOf settings = SettingsOf::Machine);

  // Puts the registry back to what it was, removes the browsers' data, and empties the daily log.
  void Restore() const;
  // The texts of the daily log, without their stamps and line ends.
  [[nodiscard]] std::vector<std::string> LogTexts() const;
  // For a process's report.
  [[nodiscard]] std::filesystem::path ReportPath(const std::string& name) const;

 private:
  support::Machine machine_;
  std::filesystem::path hives_;
  std::filesystem::path kept_;
  std::filesystem::path logs_;
  std::vector<std::filesystem::path> browsers_;  // The folders that take a data file.
};

// Whether the user's hive has that key.
[[nodiscard]] bool UserHas(const char16_t* path);
// Whether no process holds the mutex of the resident helper.
[[nodiscard]] bool MutexIsFree();
// Asks the window for its end, as the settings watcher does. False when there is none.
bool EndResident();

}  // namespace fault
