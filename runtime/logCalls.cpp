#include "runtime/logCalls.h"

#include <mutex>
#include <utility>

#include "platform/error.h"
#include "platform/raii.h"
#include "platform/shell.h"

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

constexpr platform::DWORD kUserDefaultLanguage = 0x400;

}  // namespace

std::string LogCall::ErrorText() const {
  if (!lastError) return {};
  using namespace platform;
  constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM |
                           FORMAT_MESSAGE_MAX_WIDTH_MASK;
  UniqueLocal<char> text;
  const DWORD length = FormatMessageA(kFlags, nullptr, *lastError, kUserDefaultLanguage, text.put(), 0, nullptr);
  return length > 0 ? std::string(text.get(), length) : std::string();
}

std::string LogCall::Text() const {
  std::string text = platform::formatting::FormatArguments<char>(format, arguments).value_or("");
  if (!lastError) return text;
  if (text.ends_with('\n')) text.pop_back();
  return text + platform::FormatNarrow("; (%d) %s", *lastError, ErrorText()).value_or("");
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
