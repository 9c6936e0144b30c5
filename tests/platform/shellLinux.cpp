#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "platform/raii.h"
#include "platform/shell.h"
#include "tests/platform/programOnDrive.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;

DWORD OpenByVerb(const std::u16string& file, const char16_t* verb = u"open") {
  SHELLEXECUTEINFOW information{};
  information.cbSize = sizeof information;
  information.fMask = SEE_MASK_FLAG_NO_UI;
  information.lpVerb = verb;
  information.lpFile = file.c_str();
  return ShellExecuteExW(&information) ? ERROR_SUCCESS : GetLastError();
}

void Register(support::Hive hive, std::u16string_view command) {
  support::SetText(hive, u"Software\\Classes\\lumenartest\\shell\\open\\command", u"", command);
}

// Here, and not beside the others, as Wine 8 does not look for the user's own handlers. Windows does.
TEST(ShellOnLinux, PrefersTheUsersHandlerToTheMachines) {
  const support::Machine machine;
  programs::RecordIn(machine);
  const std::u16string start =
      u'"' + programs::Put(machine, u"handler.exe") + u'"' + std::u16string(programs::kRecords);
  Register(support::Hive::Machine, start + u"machine %1");
  EXPECT_EQ(OpenByVerb(u"lumenartest:x"), ERROR_SUCCESS);
  EXPECT_EQ(programs::Recorded(machine), start + u"machine lumenartest:x");
  Register(support::Hive::User, start + u"user %1");
  EXPECT_EQ(OpenByVerb(u"lumenartest:x"), ERROR_SUCCESS);
  EXPECT_EQ(programs::Recorded(machine), start + u"user lumenartest:x");
}

// Wine 8 reports 3 here; Windows reports what this does.
TEST(ShellOnLinux, HasNoAssociationForASchemeThatNobodyRegistered) {
  const support::Machine machine;
  EXPECT_EQ(OpenByVerb(u"lumenarunknown:x"), ERROR_NO_ASSOCIATION);
}

TEST(ShellOnLinux, KnowsNoVerbButOpen) {
  const support::Machine machine;
  EXPECT_EQ(OpenByVerb(programs::Put(machine, u"x.exe"), u"print"), ERROR_INVALID_PARAMETER);
}

}  // namespace
