// A mutex with a name lies in a file that others can write to.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/linux/namedObjects.h"
#include "platform/raii.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;

TEST(Mutex, WhoseFileIsSpoiledFailsTheWait) {
  const support::Machine machine;
  constexpr const char16_t* kName = u"Lumenar Test: a spoiled mutex";
  const UniqueMutex mutex(CreateMutexW(nullptr, false, kName));
  ASSERT_TRUE(mutex);
  {
    std::fstream file(namedObjects::PathOf(kName), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(64);
    file << std::string(64, '\x7F');
    ASSERT_TRUE(file.flush());
  }
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_FAILED);
  EXPECT_NE(GetLastError(), ERROR_SUCCESS);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 60'000), WAIT_FAILED);
}

}  // namespace
