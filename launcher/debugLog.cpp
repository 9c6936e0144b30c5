#include "launcher/debugLog.h"

#include <algorithm>

#include "launcher/handOff.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/raii.h"
#include "platform/session.h"
#include "settings/registryAccess.h"
#include "settings/registryPaths.h"

namespace debugLog {

constinit State state{};

namespace {

using platform::DWORD;
using platform::MAX_PATH;

void StorePath(std::u16string_view path) noexcept {
  path = path.substr(0, MAX_PATH - 1);
  for (std::size_t i = 0; i < path.size(); ++i) state.path[i].store(path[i], std::memory_order_relaxed);
  state.path[path.size()].store(u'\0', std::memory_order_relaxed);
}

std::array<char16_t, MAX_PATH> LoadPath() noexcept {
  std::array<char16_t, MAX_PATH> path{};
  std::transform(state.path.begin(), state.path.end() - 1, path.begin(),
                 [](const std::atomic<char16_t>& unit) { return unit.load(std::memory_order_relaxed); });
  return path;
}

// Moves on to the file of the day. What cannot be found out leaves the old path in place.
void UpdatePath(const platform::SYSTEMTIME& now) {
  if (state.day.load(std::memory_order_acquire) == now.wDay) return;
  char16_t temporaryPath[MAX_PATH];
  const DWORD length = platform::GetTempPathW(MAX_PATH, temporaryPath);
  if (length == 0 || length >= MAX_PATH) return;
  char16_t userName[MAX_PATH];
  DWORD size = MAX_PATH;
  if (!platform::GetUserNameW(userName, &size)) return;
  StorePath(platform::Format(u"%scorvane-%s\\lumenar-UrlRedirection-%04u-%02u-%02u.log", temporaryPath, userName,
                             now.wYear, now.wMonth, now.wDay));
  state.day.store(now.wDay, std::memory_order_release);  // Who sees the day sees its path.
}

bool ReadDebugLogSetting() noexcept {
  platform::UniqueNativeKey key;
  if (settings::OpenKeyCurrentUser(settings::RootPath, settings::kReadAccess, key.put()) != 0 &&
      settings::OpenKeyAbsolute(settings::RootMachinePath, settings::kReadAccess, key.put()) != 0) {
    return false;
  }
  DWORD value = 0;
  return settings::ReadNumber(key.get(), u"DebugLog", &value) && value != 0;
}

}  // namespace

bool IsDebugLogEnabled() noexcept {
  if (state.enabledUnread.load(std::memory_order_acquire)) {
    state.enabled.store(ReadDebugLogSetting(), std::memory_order_relaxed);
    state.enabledUnread.store(false, std::memory_order_release);
  }
  return state.enabled.load(std::memory_order_relaxed);
}

void AppendDebugLogLine(std::u16string_view text) noexcept try {
  platform::SYSTEMTIME now{};
  platform::GetLocalTime(&now);
  UpdatePath(now);
  const std::u16string stamped = platform::Format(u"%d-%02d-%02d  %02d:%02d:%02d  %s", now.wYear, now.wMonth, now.wDay,
                                                  now.wHour, now.wMinute, now.wSecond, text);
  platform::TextStream* const file = platform::_wfopen(LoadPath().data(), u"a+");
  if (file == nullptr) return;
  platform::fputws(stamped.c_str(), file);
  platform::fclose(file);
} catch (const std::bad_alloc&) {
  return;
}

namespace detail {

void WriteNarrow(const std::optional<std::string>& text) {
  if (!text) return;
  // Sign extension, as a plain assignment of a byte to a unit gives it; UTF-8 is not decoded here.
  std::u16string wide(text->size(), u'\0');
  std::transform(text->begin(), text->end(), wide.begin(),
                 [](char byte) { return static_cast<char16_t>(static_cast<signed char>(byte)); });
  AppendDebugLogLine(wide);
}

void SendToHelper(std::u16string text) {
  // The size counts one unit more than the text and its NUL, as the receiver has always been told.
  const std::size_t size = (text.size() + 2) * sizeof(char16_t);
  text.push_back(u'\0');
  handOff::SendToHelper(handOff::HELPER_LOG_TEXT, text.data(), static_cast<DWORD>(size));
}

}  // namespace detail
}  // namespace debugLog
