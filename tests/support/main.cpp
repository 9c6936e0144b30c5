// The entry of every test program: a child body when the command line asks for one, else the tests.
#include <gtest/gtest.h>

#include "tests/support/process.h"
#include "tests/support/watch.h"

int main(int argc, char** argv) {
  if (const auto exitCode = support::RunChildBody(argc, argv)) return *exitCode;
  testing::InitGoogleTest(&argc, argv);
  support::WatchTests();
  return RUN_ALL_TESTS();
}
