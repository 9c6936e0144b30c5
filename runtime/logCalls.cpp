#include "runtime/logCalls.h"

#include <mutex>
#include <utility>

#include "platform/error.h"
#include "platform/raii.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace runtime {
namespace {

struct Destination {
  std::mutex mutex;
  std::shared_ptr<LogReceiver> receiver;
};

// Never destroyed: threads may log while the process ends.
Destination& TheDestination() {
  static auto& destination = *new Destination;
  return destination;
}

std::string InAnsi(std::u16string_view wide) {
  const auto length = static_cast<int>(wide.size());
  const int size =
      platform::WideCharToMultiByte(platform::CP_THREAD_ACP, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  platform::WideCharToMultiByte(platform::CP_THREAD_ACP, 0, wide.data(), length, text.data(), size, nullptr, nullptr);
  return text;
}

constexpr platform::DWORD kUserDefaultLanguage = 0x400;

// Empty for an error that the system has no text for.
std::string SystemText(platform::DWORD error) {
  platform::UniqueLocal<char16_t> text;
  const platform::DWORD length =
      platform::FormatMessageW(platform::FORMAT_MESSAGE_ALLOCATE_BUFFER | platform::FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                               error, kUserDefaultLanguage, text.put(), 0, nullptr);
  std::u16string_view line(text.get(), length);
  while (line.ends_with(u'\n') || line.ends_with(u'\r')) line.remove_suffix(1);
  return InAnsi(line);
}

}  // namespace

std::string LogCall::Text() const {
  std::string text = platform::formatting::FormatArguments<char>(format, arguments).value_or("");
  if (!lastError) return text;
  if (text.ends_with('\n')) text.pop_back();
  return text + platform::FormatNarrow("; (%d) %s", *lastError, SystemText(*lastError)).value_or("");
}

std::shared_ptr<LogReceiver> SetLogReceiver(std::shared_ptr<LogReceiver> receiver) noexcept {
  Destination& destination = TheDestination();
  const std::scoped_lock lock(destination.mutex);
  return std::exchange(destination.receiver, std::move(receiver));
}

void logging::Send(const LogCall& call) noexcept try {
  Destination& destination = TheDestination();
  std::unique_lock lock(destination.mutex);
  const std::shared_ptr<LogReceiver> receiver = destination.receiver;
  lock.unlock();  // A receiver may log, and may change the receiver.
  if (receiver) receiver->Receive(call);
} catch (...) {
  // A line that cannot be written is lost.
}

void logging::SendWithLastError(LogCall call) noexcept {
  call.lastError = platform::GetLastError();
  Send(call);
}

}  // namespace runtime
