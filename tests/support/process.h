// Processes that a test starts: itself again with another body, or the program. Both targets.
//
//   CHILD_BODY(HoldsTheMutex) {                      // runs in a process of its own
//     ...
//     support::Say("holding");                       // a line to the parent
//     support::Hear();                               // waits for a line from the parent
//     return 0;                                      // the process's exit code
//   }
//   TEST(Mutex, ...) {
//     support::Process child = support::StartChild("HoldsTheMutex");
//     ASSERT_EQ(child.Hear(), "holding");
//     ...
//     child.Say("go");
//     EXPECT_EQ(child.Wait(), 0);
//   }
//
// Parent and child wait for each other's lines, so that no test has to wait for time to pass.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace support {

struct StartOptions {
  std::string program;                                           // A path of the host; it is argv[0] too.
  std::vector<std::string> arguments;                            // UTF-8; on Linux any bytes.
  std::vector<std::pair<std::string, std::string>> environment;  // Set over what this process has.
  // Windows: the whole command line instead of program and arguments, as the system takes it. Ignored on Linux.
  std::optional<std::u16string> rawCommandLine = std::nullopt;
};

class Process {
 public:
  // Starts the process with pipes at its standard input and output; its standard error is captured as well. Ends the
  // test program when that fails.
  explicit Process(const StartOptions& options);
  Process(Process&&) noexcept;
  Process& operator=(Process&&) noexcept;
  // Kills the process if it still runs, and waits for its end.
  ~Process();

  // The next line that the process wrote, without its end; empty at the end of its output.
  [[nodiscard]] std::string Hear();
  void Say(const std::string& line);
  // Closes the standard input and waits for the end. The exit code; on Linux a signal counts as 128 plus its number.
  int Wait();
  // Ends the process without a chance to clean up.
  void Kill();
  [[nodiscard]] std::uint32_t Id() const;
  // All that is left of its output and all of its error output. Call after Wait.
  [[nodiscard]] std::string RestOfOutput();
  [[nodiscard]] std::string ErrorOutput();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Starts this test program again, to run the CHILD_BODY of that name.
[[nodiscard]] Process StartChild(const std::string& name, std::vector<std::string> arguments = {},
                                 std::vector<std::pair<std::string, std::string>> environment = {});

// In a child: a line to the parent, at once; and a line from it (empty when the parent has closed or ended).
void Say(const std::string& line);
[[nodiscard]] std::string Hear();

// The path of this test program, and of a file beside it in the build's folder for tests.
[[nodiscard]] std::string OwnPath();
[[nodiscard]] std::string Beside(const std::string& file);

// The path of the program that the tests are of.
[[nodiscard]] std::string ProgramPath();

// The environment of this process.
void SetEnvironment(const std::string& name, const std::string& value);
void UnsetEnvironment(const std::string& name);

using ChildBody = int (*)(const std::vector<std::string>& arguments);
// Registers a body at start-up; use CHILD_BODY.
struct ChildRegistration {
  ChildRegistration(const char* name, ChildBody body);
};
// Runs the body that the command line asks for, if it does.
[[nodiscard]] std::optional<int> RunChildBody(int argc, char** argv);

}  // namespace support

#define CHILD_BODY(Name)                                                             \
  static int Name##Body([[maybe_unused]] const std::vector<std::string>& arguments); \
  static const support::ChildRegistration Name##Registration(#Name, &Name##Body);    \
  static int Name##Body([[maybe_unused]] const std::vector<std::string>& arguments)
