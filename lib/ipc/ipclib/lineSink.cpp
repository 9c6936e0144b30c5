#include "lib/ipc/ipclib/lineSink.h"

#include <utility>

namespace quill::log {

void LineSink::Write(std::int32_t level, const Location& location, std::string_view text) {
  Line line{level, std::string(location.path), location.line, location.function, std::string(text)};
  const std::scoped_lock lock(mutex_);
  lines_.push_back(std::move(line));
}

std::vector<LineSink::Line> LineSink::Take() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<std::string> LineSink::TakeTexts() {
  std::vector<std::string> texts;
  for (Line& line : Take()) texts.push_back(std::move(line.text));
  return texts;
}

}  // namespace quill::log
