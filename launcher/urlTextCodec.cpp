#include "launcher/urlTextCodec.h"

#include "launcher/debugLog.h"

namespace launcher {
namespace {
constexpr std::u16string_view kReserved = u" \"%+?&:/\\,[]#";
constexpr std::size_t kLongestUrl = 2084;
constexpr std::size_t kSeparatorBound = 10;
}  // namespace

std::u16string GetEncodedUrl(std::u16string_view text) {
  std::u16string encoded;
  std::size_t position = 0;
  for (std::size_t hit = 0; (hit = text.find_first_of(kReserved, position)) != text.npos; position = hit + 1) {
    encoded.append(text.substr(position, hit - position)).append(platform::Format(u"%%%02X", text[hit]));
  }
  return encoded.append(text.substr(position));
}

std::u16string GetDecodedUrl(std::u16string_view url) {
  if (url.empty() || url.size() > kLongestUrl) {
    debugLog::LogDirect("%s: Failed to decode the url '%S' \n", "GetDecodedUrl", url);
    return std::u16string(url);
  }
  // The lower-case form is looked for only where the other is nowhere: a far-off "%3A" hides an early "%3a".
  std::size_t separator = url.find(u"%3A");
  if (separator == url.npos) separator = url.find(u"%3a");
  if (separator >= kSeparatorBound) return std::u16string(url);
  return std::u16string(url.substr(0, separator)).append(u":").append(url.substr(separator + 3));
}

}  // namespace launcher
