// Each call that can fail is made to fail, one after the other, over a road of the program, until a run in which
// nothing failed. Whatever fails, a process ends with 0, in bounded time, with the handles and the log that are
// promised for it.
//
// Each walk is done twice: a call fails once, or it and all behind it fail. In the latter GetMessageW is spared: its -1
// counts as a message, by design of the message loop, which would never end if it failed for good. That it fails once,
// at any place, is walked over.
//
//   LUMENAR_WALK_ONLY=17      walks over nothing but the failure of call 17
//   LUMENAR_WALK_SHOW=1       prints what each run did
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/fault/faultMachineLinux.h"
#include "tests/fault/faultedProcessLinux.h"

namespace fault {

using Texts = std::vector<std::string>;

// What one run did.
struct Outcome {
  Ending ending;
  Texts log;
};

// What the daily log holds afterwards.
struct Promise {
  Texts log;                            // When nothing that matters for the log fails.
  std::map<std::string, Texts> unless;  // By the call that fails once: "NtOpenKey#2" is the second of its name.
  bool amongOthers = false;             // The log has texts of the settings and of the browsers' data as well.
  bool residentIsUp = false;            // Next to the process; so that another one leaves its mutex handle open.
  std::set<std::string> anywhere = {};  // Texts of another thread: promised ahead of the others, they come at any time.
};

enum class Mode : std::uint8_t { Once, FromThereOn };
void PrintTo(Mode mode, std::ostream* stream);

// A walk goes in steps of so many calls: of one, but where a sanitizer takes too long for that.
inline constexpr unsigned kStep = LUMENAR_WALK_STEP;

class FaultWalk : public testing::TestWithParam<Mode> {
 protected:
  void Walk(const FaultMachine& machine, const Promise& promise, const std::function<Outcome(const Fault&)>& run);

  // The parts of a walk.
  static Fault FaultAt(unsigned at);
  // The call that the walk is told to go to, and no further.
  static std::optional<unsigned> OnlyCall();
  static void ShowIfWanted(unsigned at, const Outcome& outcome);
  static void CheckEnd(const Outcome& outcome, const Promise& promise);
  // What fails, and how to repeat it.
  static std::string Told(unsigned at, const Ending& ending);
};

// A process without a fault.
class Healthy : public FaultedProcess {
 public:
  explicit Healthy(const FaultMachine& machine, const Texts& arguments = {})
      : FaultedProcess(arguments, Fault{}, machine.ReportPath("healthy")) {}
};

// An app path that is long enough for the first rule to be searched on a thread of its own, and its launch.
[[nodiscard]] std::string AppPath();
[[nodiscard]] std::string LaunchUrl(const std::string& text);
// The log of a launch that goes well.
[[nodiscard]] Texts LaunchTexts();
// The texts without the one at that place.
[[nodiscard]] Texts Without(Texts texts, std::size_t place);

inline constexpr const char* kAlreadyRunning = "WinMain: URL redirection helper is already running. Exiting now.";

std::string ModeName(const testing::TestParamInfo<Mode>& mode);

}  // namespace fault
