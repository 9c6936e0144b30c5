// The daily log of a test's machine: the folder that the installer would have made, and what has been written there.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/machine.h"

namespace unit {

class DailyLog {
 public:
  // Makes the folder, empty.
  explicit DailyLog(const support::Machine& machine);
  DailyLog(const DailyLog&) = delete;
  DailyLog& operator=(const DailyLog&) = delete;
  ~DailyLog();

  [[nodiscard]] const std::filesystem::path& Folder() const noexcept { return folder_; }
  void RemoveFolder();
  // The names of the files, in order.
  [[nodiscard]] std::vector<std::string> Files() const;
  // All that the files hold, as bytes.
  [[nodiscard]] std::string Content() const;
  // What stands behind each stamp, with "\n" for the file's line ends.
  [[nodiscard]] std::vector<std::string> Texts() const;

 private:
  std::filesystem::path folder_;
};

}  // namespace unit
