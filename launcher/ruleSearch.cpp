#include "launcher/ruleSearch.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <regex>
#include <string>
#include <thread>

#include "platform/raii.h"

namespace launcher {
namespace {

using Iterator = std::wstring::const_iterator;
namespace constants = std::regex_constants;

// One unit becomes one character, whatever the width of wchar_t: the matcher sees what the system counts.
std::wstring Units(std::u16string_view text) { return {text.begin(), text.end()}; }

// Where "." does not match, so that a run of it cannot have begun before.
bool EndsLine(wchar_t unit) noexcept {
  return unit == L'\n' || unit == L'\r' || unit == L'\u2028' || unit == L'\u2029';
}

// As regex_search, from each start of a line alone. A search for ".*x" that begins anew at every character takes time
// square to the text.
bool SearchFromLineStarts(const std::wstring& text, const std::wregex& rule) {
  constants::match_flag_type flags = constants::match_continuous;
  for (Iterator start = text.begin();;) {
    if (std::regex_search(start, text.end(), rule, flags)) return true;
    start = std::find_if(start, text.end(), EndsLine);
    if (start == text.end()) return false;
    ++start;
    flags |= constants::match_prev_avail;
  }
}

std::wregex Compiled(std::u16string_view rule) { return std::wregex(Units(rule), std::wregex::ECMAScript); }

bool Search(const std::wstring& text, std::u16string_view rule) {
  const std::wregex expression = Compiled(rule);
  return MatchesFromLineStartsAlone(rule) ? SearchFromLineStarts(text, expression)
                                          : std::regex_search(text, expression);
}

// An upper bound of the stack that a search takes: for each character, the matcher nests once for each group,
// alternative and repetition that it can pass on its way to the next. What takes no character counts too, and reading
// the rule nests once for each of its parts; so the rule's length is added to the text's. A frame takes less than 200
// bytes, five times as many in the builds that check addresses. A counted repetition multiplies what it holds, so it
// gets all there is.
std::size_t StackNeeded(std::size_t units, std::u16string_view rule) noexcept {
  constexpr std::size_t kFrame = 1024;
  constexpr std::size_t kMost = std::size_t{1} << 30;
  if (rule.find(u'{') != rule.npos) return kMost;
  const auto nesting = static_cast<std::size_t>(
      std::ranges::count_if(rule, [](char16_t unit) { return std::u16string_view(u"(|*+?").contains(unit); }));
  return std::min(kMost, kFrame * (3 + 2 * nesting) * (units + rule.size() + 64));
}

// Half of what a main thread has.
constexpr std::size_t kCallersStack = std::size_t{4} << 20;

struct Task {
  const std::wstring& text;
  std::u16string_view rule;
  bool matched = false;
  std::exception_ptr failure;
  std::atomic<bool> done = false;  // The last that the thread touches of this.
};

platform::DWORD RunTask(void* parameter) noexcept {
  Task& task = *static_cast<Task*>(parameter);
  try {
    task.matched = Search(task.text, task.rule);
  } catch (...) {
    task.failure = std::current_exception();  // The caller's to deal with, as if no thread were between.
  }
  task.done.store(true, std::memory_order_release);
  return 0;
}

bool SearchOnThreadOfItsOwn(const std::wstring& text, std::u16string_view rule, std::size_t stack) {
  Task task{.text = text, .rule = rule, .matched = false, .failure = nullptr, .done = false};
  const platform::UniqueThread thread(
      platform::CreateThread(nullptr, stack, &RunTask, &task, platform::STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
  if (!thread) {
    // What is no expression is told all the same, if the rule can be read here.
    if (StackNeeded(0, rule) <= kCallersStack) static_cast<void>(Compiled(rule));
    return false;
  }
  platform::WaitForSingleObject(thread.get(), platform::INFINITE);
  // The thread uses this frame, which must not go before it, also when the system refuses to wait.
  while (!task.done.load(std::memory_order_acquire)) std::this_thread::yield();
  if (task.failure) std::rethrow_exception(task.failure);
  return task.matched;
}

}  // namespace

bool MatchesFromLineStartsAlone(std::u16string_view rule) noexcept {
  if (!rule.starts_with(u".*")) return false;
  // The library reads repetition upon repetition, and ".*{0}" or ".*?{0}" is no run at all.
  const std::size_t behindRun = rule.find_first_not_of(u"*+?", 2);
  if (behindRun != rule.npos && rule[behindRun] == u'{') return false;
  if (rule.find(u'|') == rule.npos) return true;
  if (rule.find(u'[') != rule.npos) return false;  // Brackets inside brackets have rules of their own; not worth it.
  // The run must lead every alternative: each "|" has to stand inside a group.
  int depth = 0;
  for (std::size_t i = 0; i < rule.size(); ++i) {
    switch (rule[i]) {
      case u'\\': ++i; break;
      case u'(': ++depth; break;
      case u')': --depth; break;
      case u'|':
        if (depth <= 0) return false;
        break;
      default: break;
    }
  }
  return true;
}

bool ContainsMatch(std::u16string_view text, std::u16string_view rule) {
  const std::wstring units = Units(text);
  const std::size_t stack = StackNeeded(units.size(), rule);
  return stack <= kCallersStack ? Search(units, rule) : SearchOnThreadOfItsOwn(units, rule, stack);
}

}  // namespace launcher
