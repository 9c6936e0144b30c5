// One named channel of traces, and where its lines go.
//
// Threading: every member may be called from any thread without a lock.
#pragma once

#include <fmt/core.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace quill::log {

// Where a line comes from.
struct Location {
  std::string_view path;  // Of the source unit below the tree's root: "lib\ipc\ipclib\ipclibMsg".
  unsigned line;
  const char* function;  // The name alone: "appendData".
};

// Takes finished lines.
class Sink {
 public:
  Sink() = default;
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  virtual ~Sink() = default;

  // On the thread that traces, on several threads at a time, with no lock of the logger held; often within locks of the
  // library, so a sink never calls back into it. What the views refer to is gone when this returns. A NUL stands behind
  // `text`. What it throws is dropped.
  virtual void Write(std::int32_t level, const Location& location, std::string_view text) = 0;
};

using Sinks = std::vector<std::shared_ptr<Sink>>;

class Logger {
 public:
  Logger(std::string name, Sinks sinks);

  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  [[nodiscard]] std::int32_t level() const noexcept { return level_.load(std::memory_order_relaxed); }
  // The level while there is a sink, otherwise -1. One relaxed load: whoever traces looks here first.
  [[nodiscard]] std::int32_t effectiveLevel() const noexcept { return effectiveLevel_.load(std::memory_order_relaxed); }

  // Formats the text and hands it to each sink, unless effectiveLevel() is below `level`. Never fails its caller: a
  // line that cannot be formatted is lost.
  void Log(std::int32_t level, const Location& location, fmt::string_view format, fmt::format_args arguments) noexcept;

  // The highest level that goes to the sinks, 4 at first. The library's own traces are of level 6.
  void setLevel(std::int32_t level);
  void addSink(std::shared_ptr<Sink> sink);
  // A line that is on its way may still reach a sink after this.
  void removeSinks();

 private:
  friend std::shared_ptr<Logger> CreateLogger(std::string name, Sinks sinks);
  void updateEffectiveLevel();

  const std::string name_;
  std::atomic<std::int32_t> level_ = 4;
  std::atomic<std::int32_t> effectiveLevel_ = -1;
  Sinks sinks_;
  mutable std::shared_mutex lock_;  // Guards sinks_.
};

[[nodiscard]] std::shared_ptr<Logger> CreateLogger(std::string name, Sinks sinks);

}  // namespace quill::log
