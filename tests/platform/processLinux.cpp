#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/platform/programOnDrive.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using programs::ErrorOfStart;
using programs::Start;
using programs::Started;

// Wine takes command lines of any length; Windows documents this limit.
TEST(ProcessOnLinux, RefusesACommandLineThatIsTooLong) {
  const support::Machine machine;
  const std::u16string start = programs::Put(machine, u"child.exe") + u" ";
  EXPECT_EQ(ErrorOfStart(start + std::u16string(32'767 - start.size(), u'x')), ERROR_FILENAME_EXCED_RANGE);
}

TEST(ProcessOnLinux, TellsAMissingFolderFromAMissingFile) {
  const support::Machine machine;
  EXPECT_EQ(ErrorOfStart(machine.Folder() + u"missing\\child.exe"), ERROR_PATH_NOT_FOUND);
}

TEST(ProcessOnLinux, NeedsTheRightToExecute) {
  const support::Machine machine;
  std::ofstream(machine.HostFolder() / "text.exe") << "no program";
  EXPECT_EQ(ErrorOfStart(machine.Folder() + u"text.exe"), ERROR_ACCESS_DENIED);
}

TEST(ProcessOnLinux, LeavesNoZombieOnceAnotherIsStarted) {
  const support::Machine machine;
  const std::u16string line = programs::Put(machine, u"child.exe") + std::u16string(programs::kEndsAtOnce);
  Started first = Start(line);
  ASSERT_TRUE(first);
  first.thread.reset();
  first.process.reset();
  siginfo_t info{};
  const int waited = waitid(P_PID, first.id, &info, WEXITED | WNOWAIT);  // Ended, and not yet reaped by this.
  Started second = Start(line);
  ASSERT_TRUE(second);
  if (waited == 0) {
    EXPECT_EQ(waitid(P_PID, first.id, &info, WEXITED | WNOWAIT | WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }
  EXPECT_EQ(WaitForSingleObject(second.process.get(), INFINITE), WAIT_OBJECT_0);
  second.thread.reset();
  second.process.reset();
  EXPECT_EQ(waitid(P_PID, second.id, &info, WEXITED | WNOWAIT | WNOHANG), -1);
}

TEST(CommandLineOnLinux, IgnoresALineThatAnotherProcessWasStartedWith) {
  support::Process child = support::StartChild("TellsItsCommandLine", {"own"},
                                               {{"LUMENAR_COMMAND_LINE", "other --child=TellsItsCommandLine other"}});
  static_cast<void>(child.Hear());
  static_cast<void>(child.Hear());
  EXPECT_EQ(child.Hear(), "111,119,110,");
  EXPECT_EQ(child.Wait(), 0);
}

TEST(CommandLineOnLinux, CarriesBytesThatAreNoText) {
  support::Process child = support::StartChild("TellsItsCommandLine", {"a\xFF\xC3z"});
  static_cast<void>(child.Hear());
  static_cast<void>(child.Hear());
  EXPECT_EQ(child.Hear(), "97,56575,56515,122,");
  EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
