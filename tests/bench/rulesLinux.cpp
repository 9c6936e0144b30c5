// How long the search for a rule takes that begins with ".*" and does not match: ours, which begins at the starts of
// lines alone, and the library's, which begins anew at every character, for lengths where one can wait for it.
//
//   rules [--runs COUNT]      default 5 runs of each
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "launcher/ruleSearch.h"
#include "tests/bench/figures.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::u16string_view kRule = u".*x";

void Print(const char* name, std::size_t length, unsigned runs, const std::function<bool()>& search) {
  std::vector<double> milliseconds;
  for (unsigned run = 0; run < runs; ++run) {
    const Clock::time_point began = Clock::now();
    const bool matched = search();
    milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - began).count());
    if (matched) std::printf("matched, which it should not\n");
  }
  const bench::Figures figures = bench::FiguresOf(milliseconds);
  std::printf("%-26s %8zu %12.3f %12.3f %12.3f\n", name, length, figures.median, figures.least, figures.most);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 5);
  std::printf("the rule .*x and a text without an x, milliseconds, %u runs of each\n", runs);
  std::printf("%-26s %8s %12s %12s %12s\n", "", "units", "median", "least", "most");
  for (const std::size_t length : {200U, 1000U, 4000U, 32767U}) {
    const std::u16string text(length, u'a');
    Print("from the starts of lines", length, runs, [&] { return launcher::ContainsMatch(text, kRule); });
  }
  for (const std::size_t length : {200U, 1000U, 4000U}) {
    const std::wstring text(length, L'a');
    const std::wregex rule(std::wstring(kRule.begin(), kRule.end()), std::wregex::ECMAScript);
    Print("from every character", length, runs, [&] { return std::regex_search(text, rule); });
  }
  return 0;
}
