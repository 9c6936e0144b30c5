#include "platform/pipes.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/error.h"
#include "platform/raii.h"

namespace {

using namespace platform;

class Pipe : public testing::Test {
 protected:
  Pipe() { EXPECT_TRUE(CreatePipe(reads_.put(), writes_.put(), nullptr, 0)); }

  // What came, or the error in words.
  [[nodiscard]] static std::string Read(PipeHandle end, DWORD size) {
    std::string bytes(size, '?');
    DWORD count = 4711;
    const bool done = ReadFile(end, bytes.data(), size, &count, nullptr);
    const DWORD error = GetLastError();
    bytes.resize(count);
    return done ? bytes : bytes + "error " + std::to_string(error);
  }
  [[nodiscard]] static std::string Write(PipeHandle end, const std::string& bytes) {
    DWORD count = 4711;
    const bool done = WriteFile(end, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
    const DWORD error = GetLastError();
    return std::to_string(count) + (done ? "" : " error " + std::to_string(error));
  }

  UniquePipe reads_;
  UniquePipe writes_;
};

TEST_F(Pipe, CarriesBytesInOrder) {
  EXPECT_EQ(Write(writes_.get(), "ab"), "2");
  EXPECT_EQ(Write(writes_.get(), "cd"), "2");
  EXPECT_EQ(Read(reads_.get(), 1), "a");
  EXPECT_EQ(Read(reads_.get(), 3), "bcd");
}

TEST_F(Pipe, GivesAReaderWhatThereIs) {
  EXPECT_EQ(Write(writes_.get(), "ab"), "2");
  EXPECT_EQ(Read(reads_.get(), 100), "ab");
}

TEST_F(Pipe, LetsAReaderSleepUntilSomethingComes) {
  std::string got;
  const UniqueEvent reading(CreateEventW(nullptr, false, false, nullptr));
  std::thread reader([&] {
    SetEvent(reading.get());
    got = Read(reads_.get(), 1);
  });
  EXPECT_EQ(WaitForSingleObject(reading.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(Write(writes_.get(), "x"), "1");
  reader.join();
  EXPECT_EQ(got, "x");
}

TEST_F(Pipe, WakesAReaderWhenTheWriterIsGone) {
  std::string got;
  const UniqueEvent reading(CreateEventW(nullptr, false, false, nullptr));
  std::thread reader([&] {
    SetEvent(reading.get());
    got = Read(reads_.get(), 1);
  });
  EXPECT_EQ(WaitForSingleObject(reading.get(), INFINITE), WAIT_OBJECT_0);
  writes_.reset();
  reader.join();
  EXPECT_EQ(got, "error " + std::to_string(ERROR_BROKEN_PIPE));
}

TEST_F(Pipe, IsReadToItsEndWhenTheWriterIsGone) {
  EXPECT_EQ(Write(writes_.get(), "ab"), "2");
  writes_.reset();
  EXPECT_EQ(Read(reads_.get(), 1), "a");
  EXPECT_EQ(Read(reads_.get(), 2), "b");
  EXPECT_EQ(Read(reads_.get(), 1), "error " + std::to_string(ERROR_BROKEN_PIPE));
  EXPECT_EQ(Read(reads_.get(), 1), "error " + std::to_string(ERROR_BROKEN_PIPE));
}

TEST_F(Pipe, TakesNothingWhenTheReaderIsGone) {
  reads_.reset();
  EXPECT_EQ(Write(writes_.get(), "x"), "0 error " + std::to_string(ERROR_NO_DATA));
}

TEST_F(Pipe, TakesMoreThanItHoldsWhileSomebodyReads) {
  const std::string sent(1u << 20, 'x');
  std::string got;
  std::thread reader([&] {
    while (got.size() < sent.size()) got += Read(reads_.get(), 0x10000);
  });
  EXPECT_EQ(Write(writes_.get(), sent), std::to_string(sent.size()));
  reader.join();
  EXPECT_TRUE(got == sent);
}

TEST_F(Pipe, HasTwoDifferentEnds) {
  EXPECT_EQ(Read(writes_.get(), 1), "error " + std::to_string(ERROR_ACCESS_DENIED));
  EXPECT_EQ(Write(reads_.get(), "x"), "0 error " + std::to_string(ERROR_ACCESS_DENIED));
}

TEST_F(Pipe, ThatIsNoneIsRefused) {
  const UniqueEvent event(CreateEventW(nullptr, true, false, nullptr));
  const PipeHandle closed = reads_.get();
  reads_.reset();
  for (const PipeHandle handle : {PipeHandle(), closed, PipeHandle(event.get().value())}) {
    EXPECT_EQ(Read(handle, 1), "error " + std::to_string(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Write(handle, "x"), "0 error " + std::to_string(ERROR_INVALID_HANDLE));
  }
}

TEST_F(Pipe, IsSignalledWhateverIsInIt) {
  EXPECT_EQ(WaitForSingleObject(reads_.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(writes_.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(Write(writes_.get(), "x"), "1");
  EXPECT_EQ(WaitForSingleObject(reads_.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(reads_.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(Read(reads_.get(), 1), "x");
  writes_.reset();
  EXPECT_EQ(WaitForSingleObject(reads_.get(), 0), WAIT_OBJECT_0);
}

}  // namespace
