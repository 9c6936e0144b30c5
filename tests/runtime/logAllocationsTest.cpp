#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "runtime/loggerManager.h"
#include "tests/runtime/recordingWriter.h"

namespace {

thread_local long allocations = 0;

void* Allocate(std::size_t size) noexcept {
  ++allocations;
  return std::malloc(size != 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  if (void* const memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

// Counted in the whole program: the library's own calls come here too.
void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

class EmptyWriter : public runtime::LogWriter {
 public:
  EmptyWriter() { open = true; }
  bool ShouldDrop(const runtime::RCPtr<runtime::LogMessage>&) override { return false; }
  void Emit(const runtime::RCPtr<runtime::LogMessage>& message) override { bytes += message->Text().size(); }
  void BeginBatch() override {}
  void EndBatch() override {}
  int FormatPrefix(char* buffer, int capacity, int level, const char* functionName) override {
    return runtime::FormatLinePrefix(buffer, capacity, level, functionName, true);
  }
  std::size_t bytes = 0;
};

class LogAllocations : public testing::Test {
 protected:
  LogAllocations() {
    runtime::RouteLogCalls();
    runtime::GetDefaultLogger()->AddWriter("test", writer_.Get());
    runtime::Log("Caller()", 3, "the first one makes the block");
  }
  ~LogAllocations() override {
    runtime::GetDefaultLogger()->RemoveWriter("test");
    runtime::SetLogReceiver(nullptr);
  }

  const runtime::RCPtr<EmptyWriter> writer_{new EmptyWriter};
};

TEST_F(LogAllocations, ALineOfLessThan256BytesAllocatesNothing) {
  const std::string text(100, 'x');
  const std::size_t bytes = writer_->bytes;
  const long before = allocations;
  for (int i = 0; i < 1'000; ++i) runtime::Log("Caller()", 3, "%s %d 0x%08x", text, i, 7u);
  EXPECT_EQ(allocations, before);
  EXPECT_GT(writer_->bytes, bytes + 100'000);
}

TEST_F(LogAllocations, ALineThatIsNotWantedAllocatesNothing) {
  const long before = allocations;
  for (int i = 0; i < 1'000; ++i) runtime::LogIfWanted("Caller()", 5, "%d", i);
  EXPECT_EQ(allocations, before);
}

}  // namespace
