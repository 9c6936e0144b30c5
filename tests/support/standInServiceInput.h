// The standard input of the stand-in of the service, line by line.
#pragma once

#include <optional>
#include <string>

namespace standIn {

// Past the runtime library: a thread that sleeps in one of its streams would keep the process from ending.
class InputLines {
 public:
  // The next line, without its end; none when the input has ended.
  [[nodiscard]] std::optional<std::string> Next();

 private:
  // Waits for more; false at the end of the input.
  bool ReadMore();

  std::string buffered_;
};

}  // namespace standIn
