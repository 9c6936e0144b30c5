#include <gtest/gtest.h>

#include <filesystem>
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

TEST(Process, GetsItsCommandLineUnitForUnit) {
  const support::Machine machine;
  programs::RecordIn(machine);
  const std::u16string path = programs::Put(machine, u"a program.exe");
  for (const std::u16string& arguments : {
           std::u16string(u"plain \"two words\"   and  blanks "),
           std::u16string(u"\"a\"\"b\" \\\" \\\\\" x\\y\""),
           std::u16string(u"\u00E4\u20AC\U0001F600 \xD800 \xDC00"),
           std::u16string(20'000, u'x'),
       }) {
    const std::u16string line = u'"' + path + u'"' + std::u16string(programs::kRecords) + arguments;
    const Started started = Start(line);
    ASSERT_TRUE(started) << GetLastError();
    EXPECT_EQ(WaitForSingleObject(started.process.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(programs::Recorded(machine), line);
  }
}

TEST(Process, IsSignalledWhenItHasEnded) {
  const support::Machine machine;
  const std::u16string path = programs::Put(machine, u"child.exe");
  const Started started = Start(path + std::u16string(programs::kEndsAtOnce));
  ASSERT_TRUE(started);
  EXPECT_NE(started.id, 0u);
  EXPECT_NE(started.id, GetCurrentProcessId());
  EXPECT_TRUE(started.thread);
  EXPECT_EQ(WaitForSingleObject(started.process.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(started.thread.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(Process, IsFoundWithoutItsExe) {
  const support::Machine machine;
  programs::Put(machine, u"child.exe");
  const Started plain = Start(machine.Folder() + u"child" + std::u16string(programs::kEndsAtOnce));
  EXPECT_TRUE(plain);
  WaitForSingleObject(plain.process.get(), INFINITE);
  const Started started = Start(u'"' + machine.Folder() + u"child\"" + std::u16string(programs::kEndsAtOnce));
  EXPECT_TRUE(started);
  WaitForSingleObject(started.process.get(), INFINITE);
}

TEST(Process, MayHaveBlanksInANameWithoutQuotesAndGetsItInQuotes) {
  const support::Machine machine;
  programs::RecordIn(machine);
  const std::u16string path = programs::Put(machine, u"a b c.exe");
  const Started started = Start(path + std::u16string(programs::kRecords));
  ASSERT_TRUE(started) << GetLastError();
  EXPECT_EQ(WaitForSingleObject(started.process.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(programs::Recorded(machine), u'"' + path + u'"' + std::u16string(programs::kRecords));
}

TEST(Process, RunsOnWhenItsHandlesAreClosed) {
  const support::Machine machine;
  programs::RecordIn(machine);
  const std::u16string path = programs::Put(machine, u"child.exe");
  const std::u16string line = path + std::u16string(programs::kRecords);
  ASSERT_TRUE(Start(line));
  EXPECT_EQ(programs::Recorded(machine), line);
  programs::Remove(machine, path);
}

TEST(Process, ThatIsNotThereIsNotFound) {
  const support::Machine machine;
  EXPECT_EQ(ErrorOfStart(machine.Folder() + u"missing.exe"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOfStart(u'"' + machine.Folder() + u"missing.exe\" a"), ERROR_FILE_NOT_FOUND);
}

TEST(Process, ThatIsNoProgramIsRefused) {
  const support::Machine machine;
  const std::filesystem::path path = machine.HostFolder() / "text.exe";
  std::ofstream(path) << "no program";
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  EXPECT_EQ(ErrorOfStart(machine.Folder() + u"text.exe"), ERROR_BAD_EXE_FORMAT);
}

TEST(Process, MayHaveTheLongestCommandLine) {
  const support::Machine machine;
  const std::u16string start = programs::Put(machine, u"child.exe") + std::u16string(programs::kEndsAtOnce);
  const Started longest = Start(start + std::u16string(32'766 - start.size(), u'x'));
  ASSERT_TRUE(longest) << GetLastError();
  EXPECT_EQ(WaitForSingleObject(longest.process.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(Process, FailureLeavesTheInformationAlone) {
  const support::Machine machine;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION information{.hProcess = {}, .hThread = {}, .dwProcessId = 7, .dwThreadId = 8};
  std::u16string line = machine.Folder() + u"missing.exe";
  ASSERT_FALSE(
      CreateProcessW(nullptr, line.data(), nullptr, nullptr, false, 0, nullptr, nullptr, &startup, &information));
  EXPECT_EQ(information.dwProcessId, 7u);
  EXPECT_EQ(information.dwThreadId, 8u);
}

TEST(InputIdle, IsNothingThatAConsoleProgramHas) {
  const support::Machine machine;
  const Started started = Start(programs::Put(machine, u"child.exe") + std::u16string(programs::kEndsAtOnce));
  ASSERT_TRUE(started);
  EXPECT_EQ(WaitForInputIdle(started.process.get(), INFINITE), WAIT_FAILED);
  WaitForSingleObject(started.process.get(), INFINITE);
  EXPECT_EQ(WaitForInputIdle(started.process.get(), INFINITE), WAIT_FAILED);
}

}  // namespace
