#include "platform/com.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace platform;

TEST(Com, IsEnteredByEachThreadAndAsOftenAsItLikes) {
  std::thread([] {
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    CoUninitialize();
  }).join();
}

}  // namespace
