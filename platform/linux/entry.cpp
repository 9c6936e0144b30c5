#include "platform/entry.h"

#include <malloc.h>

int main() {
  // Threads of this program allocate little and live briefly: a heap for each would cost more than they wait for one.
  mallopt(M_ARENA_MAX, 1);
  return platform::ProgramMain();
}
