#include "lib/ipc/ipclib/traceLogger.h"

#include <fmt/format.h>

#include <mutex>
#include <utility>

namespace quill::log {

Logger::Logger(std::string name, Sinks sinks) : name_(std::move(name)), sinks_(std::move(sinks)) {}

std::shared_ptr<Logger> CreateLogger(std::string name, Sinks sinks) {
  auto logger = std::make_shared<Logger>(std::move(name), std::move(sinks));
  logger->updateEffectiveLevel();
  return logger;
}

void Logger::Log(std::int32_t level, const Location& location, fmt::string_view format,
                 fmt::format_args arguments) noexcept try {
  if (effectiveLevel() < level) return;
  fmt::basic_memory_buffer<char, 500> buffer;
  fmt::vformat_to(std::back_inserter(buffer), format, arguments);
  const std::size_t length = buffer.size();
  buffer.push_back('\0');
  std::shared_lock lock(lock_);
  const Sinks sinks = sinks_;
  lock.unlock();  // A sink may trace, and may remove itself.
  for (const auto& sink : sinks) sink->Write(level, location, {buffer.data(), length});
} catch (...) {
  // Tracing is for watching the library, which goes on without it.
}

void Logger::setLevel(std::int32_t level) {
  {
    const std::unique_lock lock(lock_);
    level_.store(level, std::memory_order_relaxed);
  }
  updateEffectiveLevel();
}

void Logger::addSink(std::shared_ptr<Sink> sink) {
  {
    const std::unique_lock lock(lock_);
    sinks_.push_back(std::move(sink));
  }
  updateEffectiveLevel();
}

void Logger::removeSinks() {
  Sinks removed;  // The sinks go when the lock is free.
  {
    const std::unique_lock lock(lock_);
    removed.swap(sinks_);
  }
  updateEffectiveLevel();
}

// Whoever comes last finds the sinks and the level as they are now, so the outcome is right in whatever order several
// threads come here.
void Logger::updateEffectiveLevel() {
  const std::shared_lock lock(lock_);
  effectiveLevel_.store(sinks_.empty() ? -1 : level(), std::memory_order_relaxed);
}

}  // namespace quill::log
