// What a process keeps of the streams that it had, where the system counts memory, descriptors and threads for us.
#include <malloc.h>

#include <filesystem>
#include <thread>

#include "tests/roads/libraryUser.h"

namespace roads {
namespace {

using service::ServiceProcess;
using testing::StartsWith;

constexpr int kFirstCycles = 100;  // By then the pool has its threads, and each of them its place in the heap.
constexpr int kCycles = 500;
// A stream, a link or a library is larger. What is smaller and lost, the address sanitizer finds.
constexpr std::size_t kLessThanAnyOfThem = 200;

long EntriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

struct Kept {
  std::size_t memory = mallinfo2().uordblks;  // With a sanitizer's allocator, 0.
  long descriptors = EntriesOf("/proc/self/fd");
  long threads = EntriesOf("/proc/self/task");
};

class LibraryCycles : public service::ServiceOfItsOwn {
 protected:
  // As a client goes through it for each URL.
  void ConnectPostAndClose(ServiceProcess& process) const {
    LibraryUser user;
    ASSERT_EQ(user.Connect(endpoint, service::kAuthenticated), Status::Success);
    process.AwaitConnected();
    ASSERT_EQ(user.Post("hello"), Status::Success);
    user.Close();
    ASSERT_EQ(user.End(), Status::Success);
    for (const char* line : {"message stream ", "no command: ", "close stream ", "closed link "}) {
      ASSERT_THAT(process.Next(), StartsWith(line));
    }
  }
};

TEST_F(LibraryCycles, LeaveNoMemoryDescriptorsOrThreadsBehind) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  for (int i = 0; i < kFirstCycles && !HasFailure(); ++i) ConnectPostAndClose(process);
  const Kept early;
  for (int i = 0; i < kCycles && !HasFailure(); ++i) ConnectPostAndClose(process);
  const Kept late;
  EXPECT_LT(late.memory, early.memory + kCycles * kLessThanAnyOfThem);
  EXPECT_LE(late.descriptors, early.descriptors);
  // Whenever they were first needed, so many threads of the pool stay.
  EXPECT_LE(late.threads, early.threads + std::thread::hardware_concurrency());
}

}  // namespace
}  // namespace roads
