// A machine for the roads of the program: settings, the daily log's folder, a recording client where the remote client
// is installed, and the program's processes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/window.h"
#include "tests/roads/clientRecorder.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace roads {

using Texts = std::vector<std::string>;

class RoadMachine {
 public:
  // A machine without any setting; see SetUp.
  RoadMachine();
  // Ends the resident helper.
  ~RoadMachine();
  RoadMachine(const RoadMachine&) = delete;
  RoadMachine& operator=(const RoadMachine&) = delete;

  // ---- Settings. A running resident follows all but the policy, and may then log something of its own at any time.
  // ----

  // An enabled machine of that origin with DebugLog on, and a policy of host "host1" and item "Calc".
  void SetUp(std::u16string_view origin, std::u16string_view allowlist = u"^apppathrd/path=");
  void SetOrigin(std::u16string_view origin);
  void SetAllowlist(std::u16string_view allowlist);
  void SetDebugLog(bool on);
  // Another place of the remote client than Folder(); ends in a backslash.
  void InstallClient(std::u16string_view folder);

  // ---- The program. ----

  // Starts the program without argument and waits until it answers in its message loop.
  void StartResident();
  // Tells the resident to end. Its exit code.
  int EndResident();
  // Ends the resident without a chance to clean up.
  void KillResident();
  [[nodiscard]] support::Process& Resident() { return *resident_; }
  // Waits until the resident is through with all that was sent to it before. False when it does not answer.
  bool Settle();
  // What SendMessageTimeoutW answers in `result` to WM_COPYDATA with these data, sent by this process; nothing when it
  // fails.
  std::optional<std::uintptr_t> Send(std::uintptr_t tag, const void* data, std::size_t size);
  std::optional<std::uintptr_t> Send(std::uintptr_t tag, std::u16string_view text);

  // Starts the program with these arguments. On Linux units become UTF-8, and lone surrogates their three-byte form.
  [[nodiscard]] support::Process Start(const std::vector<std::u16string>& arguments);
  // The same and waits for the end. The exit code.
  int Run(const std::vector<std::u16string>& arguments);
  // Runs a launcher with that text behind the launch prefix.
  int Launch(std::u16string_view text);

  // ---- What came of it. ----

  // The texts that were added to the daily log since the last call, each with its own line end when it has one.
  [[nodiscard]] Texts NewLog();
  // The command line of the next client that was started. Waits for it, and until the resident is free again.
  [[nodiscard]] std::u16string NextClient();
  // Whether every client that was started until now has been taken by NextClient. Leaves the origin at "Client".
  [[nodiscard]] bool NoOtherClient();
  [[nodiscard]] ClientRecorder& Clients() { return recorder_; }

  [[nodiscard]] std::u16string Folder() const { return machine_.Folder(); }
  [[nodiscard]] std::filesystem::path HostPath(std::u16string_view path) const { return machine_.HostPath(path); }
  // The quoted path of the recording client at Folder().
  [[nodiscard]] std::u16string Client() const;

 private:
  support::Machine machine_;
  std::filesystem::path logFolder_;
  std::size_t logTaken_ = 0;
  ClientRecorder recorder_;
  std::optional<support::Process> resident_;
};

// The program's file as the host names it.
[[nodiscard]] std::filesystem::path ProgramPath();
// The exit code. A process that does not end by itself is ended, and this program with it, like one that hangs itself.
int Await(support::Process& process);
// The window of the resident helper.
[[nodiscard]] platform::HWND FindResident();
// What the system takes for the command line of that program with these arguments.
[[nodiscard]] support::StartOptions OptionsFor(const std::filesystem::path& program,
                                               const std::vector<std::u16string>& arguments);

inline constexpr const char16_t* kLaunchPrefix = u"tavrix-prism-url-launch://";
// What is sent to the resident with it is a URL to open, or to post.
inline constexpr std::uintptr_t kLaunchOrPost = 501;
// What the log says of a machine whose settings allow app paths.
inline constexpr const char* kEnabled = "CheckAppPathSettings: Url Redirection is enabled.\n";

}  // namespace roads
