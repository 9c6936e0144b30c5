#include <unistd.h>

#include <cerrno>

#include "tests/support/standInServiceInput.h"

namespace standIn {

bool InputLines::ReadMore() {
  char chunk[4096];
  ssize_t got = 0;
  do {
    got = read(STDIN_FILENO, chunk, sizeof chunk);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) return false;
  buffered_.append(chunk, static_cast<std::size_t>(got));
  return true;
}

}  // namespace standIn
