#include "platform/shell.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "platform/raii.h"
#include "tests/platform/programOnDrive.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;

constexpr const char16_t* kCommandKey = u"Software\\Classes\\lumenartest\\shell\\open\\command";

// The machine's handlers: Wine 8 does not look for the user's own, as Windows does.
class Registered {
 public:
  Registered(support::Hive hive, std::u16string_view command) : hive_(hive) {
    support::SetText(hive, u"Software\\Classes\\lumenartest", u"URL Protocol", u"");
    support::SetText(hive, kCommandKey, u"", command);
  }
  Registered(const Registered&) = delete;
  Registered& operator=(const Registered&) = delete;
  ~Registered() { support::DeleteKey(hive_, u"Software\\Classes\\lumenartest"); }

 private:
  support::Hive hive_;
};

DWORD OpenInShell(const std::u16string& file) {
  SHELLEXECUTEINFOW information{};
  information.cbSize = sizeof information;
  information.fMask = SEE_MASK_DOENVSUBST | SEE_MASK_FLAG_NO_UI;
  information.lpVerb = u"open";
  information.lpFile = file.c_str();
  information.nShow = SW_SHOW;
  return ShellExecuteExW(&information) ? ERROR_SUCCESS : GetLastError();
}

TEST(Shell, StartsTheHandlerOfTheUrlsScheme) {
  const support::Machine machine;
  programs::RecordIn(machine);
  const std::u16string path = programs::Put(machine, u"handler.exe");
  const std::u16string start = u'"' + path + u'"' + std::u16string(programs::kRecords);
  const Registered registered(support::Hive::Machine, start + u"\"%1\" behind");
  EXPECT_EQ(OpenInShell(u"lumenartest://host/path?a=b&c=d"), ERROR_SUCCESS);
  EXPECT_EQ(programs::Recorded(machine), start + u"\"lumenartest://host/path?a=b&c=d\" behind");
  programs::Remove(machine, path);
}

TEST(Shell, SubstitutesTheEnvironment) {
  const support::Machine machine;
  programs::RecordIn(machine);
  support::SetEnvironment("LUMENAR_TEST_WORD", "word");
  const std::u16string path = programs::Put(machine, u"handler.exe");
  const std::u16string start = u'"' + path + u'"' + std::u16string(programs::kRecords);
  const Registered registered(support::Hive::Machine, start + u"%1");
  EXPECT_EQ(OpenInShell(u"lumenartest:%LUMENAR_TEST_WORD%-%2F-%LUMENAR_TEST_NO%-100%"), ERROR_SUCCESS);
  EXPECT_EQ(programs::Recorded(machine), start + u"lumenartest:word-%2F-%LUMENAR_TEST_NO%-100%");
  programs::Remove(machine, path);
}

TEST(Shell, DoesNotFindAProgramThatIsMissing) {
  const support::Machine machine;
  EXPECT_EQ(OpenInShell(machine.Folder() + u"no such.exe"), ERROR_FILE_NOT_FOUND);
}

TEST(ErrorText, IsTheSystemsOwn) {
  for (const DWORD error : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_NO_ASSOCIATION}) {
    char16_t* text = nullptr;
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error,
                                        0x400, &text, 0, nullptr);
    const UniqueLocal<char16_t> owned(text);
    ASSERT_NE(text, nullptr) << error;
    EXPECT_EQ(std::u16string(text).size(), length);
    EXPECT_TRUE(std::u16string(text).ends_with(u".\r\n"));
  }
}

TEST(ErrorText, OfANumberThatIsNoErrorIsMissing) {
  char16_t* text = nullptr;
  EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 0x2FFF1234, 0x400,
                           &text, 0, nullptr),
            0u);
  EXPECT_EQ(GetLastError(), ERROR_MR_MID_NOT_FOUND);
}

constexpr DWORD kOneLine = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM |
                           FORMAT_MESSAGE_MAX_WIDTH_MASK;
static_assert(kOneLine == 0x13FF);

TEST(ErrorTextInAnsi, IsTheTextOnOneLine) {
  for (const DWORD error : {ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE}) {
    UniqueLocal<char16_t> wide;
    UniqueLocal<char> narrow;
    ASSERT_GT(FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0x400,
                             wide.put(), 0, nullptr),
              0u);
    const DWORD length = FormatMessageA(kOneLine, nullptr, error, 0x400, narrow.put(), 0, nullptr);
    std::string expected = support::Narrow(wide.get());
    expected.replace(expected.size() - 2, 2, " ");
    EXPECT_EQ(std::string(narrow.get()), expected);
    EXPECT_EQ(length, expected.size());
  }
}

TEST(ErrorTextInAnsi, OfANumberWithoutATextIsNone) {
  UniqueLocal<char> text;
  EXPECT_EQ(FormatMessageA(kOneLine, nullptr, 0x2FFF1234, 0x400, text.put(), 0, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_MR_MID_NOT_FOUND);
  EXPECT_FALSE(text);
}

}  // namespace
