// A sink that collects lines, for tests and for whoever watches the library at work.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "lib/ipc/ipclib/traceLogger.h"

namespace quill::log {

class LineSink : public Sink {
 public:
  struct Line {
    std::int32_t level;
    std::string path;
    unsigned line;
    std::string function;
    std::string text;
  };

  void Write(std::int32_t level, const Location& location, std::string_view text) override;

  // What has come since the last call, in the order in which it came.
  [[nodiscard]] std::vector<Line> Take();
  [[nodiscard]] std::vector<std::string> TakeTexts();

 private:
  std::mutex mutex_;
  std::vector<Line> lines_;
};

}  // namespace quill::log
