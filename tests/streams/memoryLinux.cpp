// With a bound on the address space, which the sanitizers' own needs exceed.
#include <sys/resource.h>

#include <fstream>
#include <limits>

#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

// The process can have so many bytes more.
class Bound {
 public:
  explicit Bound(rlim_t bytes) {
    getrlimit(RLIMIT_AS, &before_);
    rlimit bound = before_;
    bound.rlim_cur = AddressSpace() + bytes;
    EXPECT_EQ(setrlimit(RLIMIT_AS, &bound), 0);
  }
  ~Bound() { setrlimit(RLIMIT_AS, &before_); }
  Bound(const Bound&) = delete;
  Bound& operator=(const Bound&) = delete;

 private:
  static rlim_t AddressSpace() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * 4096;
  }
  rlimit before_{};
};

TEST_F(SharedLink, WhosePeerClaims4GibInABoundedAddressSpaceIsEndedAndTheProcessIsNot) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a sanitizer's allocator ends the process itself";
#endif
  Connect();
  const Bound bound(rlim_t{1} << 30);
  RawTransaction transaction;
  RawBlock block = For(stream, "x");
  block.flags = kFirstBlock;
  transaction.Add(block);
  transaction.Put32(28 + 36, std::numeric_limits<std::uint32_t>::max());
  peer->Put(transaction, 1);
  ExpectFault();
}

// The size is the peer's word, and nobody holds it against the block.
TEST_F(SharedLink, WithoutMemoryForItsBufferEndsAndTellsThePeer) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a sanitizer's allocator ends the process itself";
#endif
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, std::uint32_t{1} << 31), Status::Success);
  const Bound bound(rlim_t{1} << 30);
  unsigned errorCode = 0;
  EXPECT_EQ(link->start(executor, errorCode), Status::OutOfMemory);
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_EQ(pool::Objects(), 0u) << "it has come to no task";
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
  EXPECT_FALSE(TakeSignal(peer->toLink.dataConsumed));
}

}  // namespace
}  // namespace streams
