// Many changes at once, as an administrator's import brings them: the resident helper ends up with the last, and holds
// no more memory than before.
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/raii.h"
#include "platform/window.h"
#include "tests/resident/residentTest.h"
#include "tests/support/process.h"

namespace resident {
namespace {

constexpr int kChanges = 1'000;
constexpr int kUntilNextChange = 100;
// What four bursts may add: the handles that a refresh leaves open, as settled. To keep the documents would take more.
constexpr long kSpareKibibytes = 2 * 1024;

// A sanitizer keeps what a program frees, so that with one the memory says nothing about the program.
constexpr bool kMemoryTells = !LUMENAR_SANITIZED;

class Burst : public ResidentTest {
 protected:
  Burst() : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    MakeMachine(u"Client", 0);
    support::CreateKey(Hive::User, kUserKey);
    MakeFolder(FirefoxFolder());
    inotify_add_watch(changes_.get(), machine.HostPath(FirefoxFolder()).c_str(), IN_CLOSE_WRITE);
  }

  static void Change(const std::string& rule) {
    support::SetText(Hive::Machine, kRoot + u"\\http", u"rules", support::Wide(rule));
  }

  // False when the helper has written nothing by then.
  [[nodiscard]] bool AwaitWriting(int milliseconds) const {
    pollfd event{.fd = changes_.get(), .events = POLLIN, .revents = 0};
    if (poll(&event, 1, milliseconds) <= 0) return false;
    char drained[4096];
    while (read(changes_.get(), drained, sizeof drained) > 0) {
    }
    return true;
  }

  void AwaitRule(const std::string& rule) const {
    while (Content(FirefoxFolder() + u"\\data.json").value_or("").find("\"" + rule + "\"") == std::string::npos) {
      ASSERT_TRUE(AwaitWriting(kBound));
    }
  }

  // The window is there, and the messages ahead of this one have been handled.
  static platform::HWND AwaitRest() {
    const platform::HWND window = platform::FindWindowW(u"CorvaneLumenar_UrlProtocolLaunchHelperClass", nullptr);
    EXPECT_NE(
        platform::SendMessageTimeoutW(window, platform::WM_NULL, 0, 0, platform::SMTO_ABORTIFHUNG, kBound, nullptr), 0);
    return window;
  }

 private:
  platform::Descriptor changes_;
};

long ResidentKibibytes(const support::Process& process) {
  std::ifstream status("/proc/" + std::to_string(process.Id()) + "/status");
  std::string word;
  while (status >> word) {
    long kibibytes = 0;
    if (word == "VmRSS:" && status >> kibibytes) return kibibytes;
  }
  return 0;
}

TEST_F(Burst, OfAThousandChangesLeavesTheLastInTheFileAndTheMemoryAsItWas) {
  support::Process process({.program = support::ProgramPath(), .arguments = {}, .environment = {}});
  int tries = 0;
  do {
    Change("try " + std::to_string(++tries));  // None for a helper that does not watch yet.
  } while (!AwaitWriting(kUntilNextChange));
  long before = 0;
  for (int burst = 0; burst < 5; ++burst) {
    for (int change = 1; change < kChanges; ++change) Change(std::to_string(change));
    const std::string last = "last of burst " + std::to_string(burst);
    Change(last);
    AwaitRule(last);
    AwaitRest();
    if (burst == 0) before = ResidentKibibytes(process);
  }
  EXPECT_GT(before, 0);
  if (kMemoryTells) {
    EXPECT_LT(ResidentKibibytes(process), before + kSpareKibibytes);
  }
  platform::PostMessageW(AwaitRest(), platform::WM_DESTROY, 0, 0);
  EXPECT_EQ(process.Wait(), 0);
}

}  // namespace
}  // namespace resident
