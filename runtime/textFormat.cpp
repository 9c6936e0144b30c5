#include "runtime/textFormat.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <system_error>

namespace runtime {
namespace {

constexpr int kMostDecimals = 32;
constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

// A duration that no number can tell becomes the nearest one; none at all becomes 0.
std::int64_t Truncated(double number) noexcept {
  constexpr double kLimit = 9'223'372'036'854'775'808.0;
  if (std::isnan(number)) return 0;
  if (number >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (number < -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

// The digits of a whole number that may be larger than any integer type.
std::string Digits(double number) {
  char digits[64];
  const auto result = std::to_chars(digits, std::end(digits), number, std::chars_format::fixed, 0);
  return std::string(digits, result.ec == std::errc() ? result.ptr : digits);
}

std::string ZeroPadded(std::string digits, int width) {
  const auto missing = static_cast<std::ptrdiff_t>(width) - static_cast<std::ptrdiff_t>(digits.size());
  const std::size_t sign = digits.starts_with('-') ? 1 : 0;
  if (missing > 0) digits.insert(sign, static_cast<std::size_t>(missing), '0');
  return digits;
}

// A duration taken apart.
struct Parts {
  std::int64_t days = 0;
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int decimals = 0;
  std::string fraction = "0";

  [[nodiscard]] std::string PaddedFraction() const { return ZeroPadded(fraction, decimals); }
};

Parts PartsOf(double duration, int decimals) {
  Parts parts{.decimals = std::clamp(decimals, 0, kMostDecimals)};
  const std::int64_t whole = Truncated(parts.decimals > 0 ? duration : duration + 0.5);
  if (parts.decimals > 0) {
    const double above = std::isfinite(duration) ? duration - std::trunc(duration) : 0;
    // Adding 0 makes a negative zero positive.
    parts.fraction = Digits(std::trunc(std::pow(10.0, parts.decimals) * above) + 0.0);
  }
  parts.seconds = static_cast<int>(whole % kMinute);
  parts.minutes = static_cast<int>(whole / kMinute % 60);
  parts.hours = static_cast<int>(whole / kHour % 24);
  parts.days = whole / kDay;
  return parts;
}

std::string ShortText(const Parts& parts) {
  if (parts.decimals == 0) return Format("%ds", parts.seconds);
  if (parts.seconds == 0) {
    if (parts.decimals == 3) return parts.fraction + "ms";
    if (parts.decimals == 6) return parts.fraction + "us";
    if (parts.decimals == 9) return parts.fraction + "ns";
  }
  return Format("%d.%ss", parts.seconds, parts.PaddedFraction());
}

std::string ClockText(const Parts& parts) {
  std::string text = Format("%d:%02d:%02d", parts.hours, parts.minutes, parts.seconds);
  if (parts.decimals > 0) text += "." + parts.PaddedFraction();
  return text;
}

}  // namespace

int SafeVFormat(char* buffer, int capacity, std::string_view format,
                std::span<const platform::formatting::Argument> arguments) noexcept {
  if (capacity <= 0) return 0;
  const std::size_t room = static_cast<std::size_t>(capacity) - 1;
  const auto whole = platform::formatting::FormatInto({buffer, room}, format, arguments);
  const std::size_t length = std::min(whole.value_or(0), room);
  buffer[length] = '\0';
  return static_cast<int>(length);
}

std::string_view BaseName(std::string_view path) noexcept {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == path.npos ? path : path.substr(separator + 1);
}

std::string FormatDuration(double seconds, int decimals) {
  const Parts parts = PartsOf(seconds, decimals);
  const bool shortOfAMinute = parts.hours == 0 && parts.minutes == 0;
  if (parts.days < 1) return parts.days == 0 && shortOfAMinute ? ShortText(parts) : ClockText(parts);
  const std::string days = Format("%lld day%s", parts.days, parts.days == 1 ? "" : "s");
  if (shortOfAMinute && parts.seconds == 0 && parts.decimals == 0) return days;
  return days + " " + ClockText(parts);
}

}  // namespace runtime
