#include "tests/ipc/failingMalloc.h"

#include <atomic>

namespace {
constexpr std::size_t kNone = static_cast<std::size_t>(-1);
// Not one for each thread: on Windows the compiler's support for those allocates, and would come here again.
std::atomic<std::size_t> refusedSize = kNone;
}  // namespace

// The names are the linker's.
extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) { return size == refusedSize ? nullptr : __real_malloc(size); }
void* __real_realloc(void* memory, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size) {
  return size == refusedSize ? nullptr : __real_realloc(memory, size);
}
}

namespace ipcTests {

NoRoomFor::NoRoomFor(std::size_t size) { refusedSize = size; }
NoRoomFor::~NoRoomFor() { refusedSize = kNone; }

}  // namespace ipcTests
