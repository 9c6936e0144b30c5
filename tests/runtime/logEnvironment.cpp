// The process's loggers live to its end: they are made ahead of the tests, whose handles are counted.
#include <gtest/gtest.h>

#include "runtime/loggerManager.h"
#include "tests/runtime/logLines.h"

namespace {

struct LogEnvironment : testing::Environment {
  void SetUp() override {
    const runtimeTests::LogLines lines;
    runtime::gLogLevel = 7;
    EXPECT_TRUE(runtime::GetLogPollThread());
    // The last line of its way into its wait: none of them is for a test to see.
    lines.Await("N TxPollThread::LogAllItems(): Logger - 0 items");
  }
};

[[maybe_unused]] const testing::Environment* const added = testing::AddGlobalTestEnvironment(new LogEnvironment);

}  // namespace
