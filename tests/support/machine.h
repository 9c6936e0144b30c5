// A machine of its own for one test. Linux: a new machine folder, which the environment of this process then names, and
// so that of the processes it starts. Windows: the prefix's own registry and drive, cleared of this program's keys and
// of what the tests leave, before and after.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace support {

class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // A folder of this test's own on the machine's drive, "C:\..." with a backslash at its end, and as the host sees it.
  [[nodiscard]] std::u16string Folder() const;
  [[nodiscard]] std::filesystem::path HostFolder() const;
  // The host's path for a path of the machine.
  [[nodiscard]] std::filesystem::path HostPath(std::u16string_view machinePath) const;

 private:
  std::filesystem::path folder_;
};

// What the names of URL schemes begin with that a test puts among the classes of either hive.
inline constexpr std::u16string_view kTestScheme = u"lumenar-test-";

enum class Hive : std::uint8_t { User, Machine };

// Write to the machine's registry; every key on the way is created. End the test program when that fails.
void SetText(Hive hive, std::u16string_view key, std::u16string_view name, std::u16string_view text);
void SetNumber(Hive hive, std::u16string_view key, std::u16string_view name, std::uint32_t number);
void SetBytes(Hive hive, std::u16string_view key, std::u16string_view name, std::uint32_t type,
              const std::vector<std::uint8_t>& bytes);
void CreateKey(Hive hive, std::u16string_view key);
void DeleteKey(Hive hive, std::u16string_view key);

// UTF-16 and UTF-8, for texts in tests.
[[nodiscard]] std::string Narrow(std::u16string_view text);
[[nodiscard]] std::u16string Wide(std::string_view text);

}  // namespace support
