#include "tests/support/standInServiceInput.h"

#include <utility>

namespace standIn {

std::optional<std::string> InputLines::Next() {
  while (true) {
    if (const auto end = buffered_.find('\n'); end != buffered_.npos) {
      std::string line = buffered_.substr(0, end);
      buffered_.erase(0, end + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return line;
    }
    if (!ReadMore()) break;
  }
  if (buffered_.empty()) return std::nullopt;
  return std::exchange(buffered_, {});
}

}  // namespace standIn
