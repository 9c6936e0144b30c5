#include <pthread.h>

#include "tests/support/threads.h"

namespace support {

std::string NameOfThisThread() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

void EndThisThread() { pthread_exit(nullptr); }

}  // namespace support
