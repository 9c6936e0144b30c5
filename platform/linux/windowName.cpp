#include "platform/linux/windowName.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cinttypes>
#include <cstdio>

#include "platform/linux/fnv1a.h"
#include "platform/linux/windowClasses.h"

namespace platform {
namespace {

// Short enough for the socket's address to hold the whole path of a usual runtime folder.
constexpr std::size_t kLongestClass = 24;
constexpr std::size_t kHashUnits = 16;

std::string Hexadecimal(std::uint64_t number, int digits) {
  char text[17];
  std::snprintf(text, sizeof text, "%0*" PRIx64, digits, number);
  return text;
}

std::uint64_t HashOf(std::string_view text) {
  Fnv1a hash;
  hash.Add(text.data(), text.size());
  return hash.Get();
}

// Later calls in one process get higher numbers.
std::uint64_t Now() {
  static std::atomic<std::uint64_t> last{0};
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const auto now = static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
  std::uint64_t previous = last.load();
  std::uint64_t next = 0;
  do next = now > previous ? now : previous + 1;
  while (!last.compare_exchange_weak(previous, next));
  return next;
}

// Takes the text up to the next dot, or all of it.
std::string_view TakeField(std::string_view& text) {
  const std::size_t end = std::min(text.find('.'), text.size());
  const std::string_view field = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return field;
}

template <class Number>
bool ParseNumber(std::string_view text, Number& number, int base) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && number > 0;
}

}  // namespace

std::string WindowName::Text() const {
  return std::string(topLevel ? "t." : "m.") + safeClass + "." + std::to_string(process) + "." +
         std::to_string(thread) + "." + Hexadecimal(made, 1);
}

std::optional<WindowName> WindowName::Parse(std::string_view text) {
  WindowName name;
  const std::string_view kind = TakeField(text);
  name.topLevel = kind == "t";
  name.safeClass = TakeField(text);
  const bool known = (name.topLevel || kind == "m") && !name.safeClass.empty();
  if (!known || !ParseNumber(TakeField(text), name.process, 10) || !ParseNumber(TakeField(text), name.thread, 10) ||
      !ParseNumber(TakeField(text), name.made, 16) || !text.empty()) {
    return std::nullopt;
  }
  return name;
}

WindowName NewWindowName(bool topLevel, std::u16string_view className) {
  return {.topLevel = topLevel,
          .safeClass = SafeClassName(className),
          .process = getpid(),
          .thread = gettid(),
          .made = Now()};
}

std::string SafeClassName(std::u16string_view className) {
  std::string safe;
  for (const char16_t unit : windowClasses::Folded(className)) {
    if ((unit >= u'a' && unit <= u'z') || (unit >= u'0' && unit <= u'9') || unit == u'_') {
      safe += static_cast<char>(unit);
    } else {
      safe += "%" + Hexadecimal(unit, 4);
    }
  }
  if (safe.size() <= kLongestClass) return safe;
  return safe.substr(0, kLongestClass - kHashUnits - 1) + "~" + Hexadecimal(HashOf(safe), kHashUnits);
}

}  // namespace platform
