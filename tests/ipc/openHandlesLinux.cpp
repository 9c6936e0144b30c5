#include "platform/linux/testHooks.h"
#include "tests/ipc/openHandles.h"

std::size_t ipcTests::OpenHandles() { return platform::test::LiveHandles().size(); }
