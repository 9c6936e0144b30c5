#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/raii.h"
#include "platform/shell.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using Arguments = std::vector<std::u16string>;

Arguments Split(const std::u16string& line) {
  int count = -1;
  const UniqueLocal<char16_t*> list(CommandLineToArgvW(line.c_str(), &count));
  if (!list) return {u"(null)"};
  EXPECT_EQ(list.get()[count], nullptr);
  return {list.get(), list.get() + count};
}

struct Spelling {
  std::u16string line;
  Arguments arguments;
};

TEST(CommandLine, SplitsByTheSystemsRules) {
  for (const auto& [line, arguments] : std::vector<Spelling>{
           // The program's name: quoted up to the next quote, else up to a blank; backslashes mean nothing.
           {u"p", {u"p"}},
           {u"p a", {u"p", u"a"}},
           {u"p\ta", {u"p", u"a"}},
           {u"\"p q\" a", {u"p q", u"a"}},
           {u"\"p q\"a", {u"p q", u"a"}},
           {u"\"p\\\" a", {u"p\\", u"a"}},
           {u"\"p", {u"p"}},
           {u"p\"q r\" a", {u"p\"q", u"r a"}},
           {u" a", {u"", u"a"}},
           {u"\"\" a", {u"", u"a"}},
           {u"p  \t a \t ", {u"p", u"a"}},
           // Arguments.
           {u"p \"a b\"", {u"p", u"a b"}},
           {u"p a\" \"b", {u"p", u"a b"}},
           {u"p \"\"", {u"p", u""}},
           {u"p \"\" b", {u"p", u"", u"b"}},
           {u"p \"a", {u"p", u"a"}},
           {u"p \"a ", {u"p", u"a "}},
           {u"p \"", {u"p", u""}},
           // Backslashes ahead of a quote, and elsewhere.
           {u"p a\\b\\\\c", {u"p", u"a\\b\\\\c"}},
           {u"p \\\"a", {u"p", u"\"a"}},
           {u"p \\\\\"a b\"", {u"p", u"\\a b"}},
           {u"p \\\\\\\"a b", {u"p", u"\\\"a", u"b"}},
           {u"p \"a\\\\\" b", {u"p", u"a\\", u"b"}},
           {u"p \"a\\\" b", {u"p", u"a\" b"}},
           {u"p a\\", {u"p", u"a\\"}},
           // Runs of quotes.
           {u"p \"a\"\"b\"", {u"p", u"a\"b"}},
           {u"p \"a\"\" b", {u"p", u"a\"", u"b"}},
           {u"p \"\"\"a b", {u"p", u"\"a", u"b"}},
           {u"p \"\"\"\"a b", {u"p", u"\"a b"}},
           // Units that mean nothing here.
           {u"p a\nb \x0B \x00A0", {u"p", u"a\nb", u"\x0B", u"\x00A0"}},
           {u"p \xD800 \xDC00x", {u"p", u"\xD800", u"\xDC00x"}},
       }) {
    EXPECT_EQ(Split(line), arguments) << support::Narrow(line);
  }
}

// Every text of up to seven units from this alphabet, behind a program's name and as the whole line.
TEST(CommandLine, SplitsEveryShortTextTheSameOnBothTargets) {
  constexpr char16_t kUnits[] = {u'a', u' ', u'\\', u'"'};
  std::uint64_t digest = 14695981039346656037u;
  const auto add = [&](const Arguments& texts) {
    for (const std::u16string& text : texts) {
      for (const char16_t unit : text + u'|') digest = (digest ^ unit) * 1099511628211u;
    }
    digest = (digest ^ u'/') * 1099511628211u;
  };
  for (unsigned length = 1; length <= 7; ++length) {
    for (unsigned number = 0; number < 1u << 2 * length; ++number) {
      std::u16string text;
      for (unsigned i = 0; i < length; ++i) text += kUnits[number >> 2 * i & 3];
      add(Split(text));
      add(Split(u"p " + text));
    }
  }
  EXPECT_EQ(digest, 11502906609885483857u);
}

TEST(CommandLine, OfTheGreatestLengthIsSplit) {
  const std::u16string argument(32'764, u'x');
  EXPECT_EQ(Split(u"p " + argument), (Arguments{u"p", argument}));
  const std::u16string quotes = u"p " + std::u16string(32'764, u'"');
  EXPECT_EQ(Split(quotes), (Arguments{u"p", std::u16string(32'764 / 3, u'"')}));
}

TEST(CommandLine, ThatIsEmptyGivesTheProgramsOwnPath) {
  const Arguments arguments = Split(u"");
  ASSERT_EQ(arguments.size(), 1u);
  EXPECT_NE(arguments[0].find(u"platform_tests"), std::u16string::npos);
}

CHILD_BODY(TellsItsCommandLine) {
  const std::u16string line = GetCommandLineW();
  for (const std::u16string& argument : Split(line)) {
    std::string units;
    for (const char16_t unit : argument) units += std::to_string(static_cast<unsigned>(unit)) + ",";
    support::Say(units);
  }
  return 0;
}

TEST(CommandLine, HoldsTheArgumentsThatTheProcessWasStartedWith) {
  const Arguments expected = {u"--child=TellsItsCommandLine", u"", u"a b", u"a\"b\\", u"\\\\",
                              u"\u00E4\u20AC\U0001F600"};
  std::vector<std::string> arguments;
  for (std::size_t i = 1; i < expected.size(); ++i) arguments.push_back(support::Narrow(expected[i]));
  support::Process child = support::StartChild("TellsItsCommandLine", arguments);
  static_cast<void>(child.Hear());  // The program's own path.
  for (const std::u16string& argument : expected) {
    std::string units;
    for (const char16_t unit : argument) units += std::to_string(static_cast<unsigned>(unit)) + ",";
    EXPECT_EQ(child.Hear(), units);
  }
  EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
