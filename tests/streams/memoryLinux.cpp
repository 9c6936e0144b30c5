#include <limits>

#include "tests/streams/sharedLinkFixture.h"
#include "tests/support/addressSpaceLinux.h"

namespace streams {
namespace {

constexpr rlim_t kGiB = rlim_t{1} << 30;
constexpr const char* kNoBound = "a sanitizer's allocator ends the process itself";

TEST_F(SharedLink, WhosePeerClaims4GibInABoundedAddressSpaceIsEndedAndTheProcessIsNot) {
  if (!support::kAddressSpaceCanBeBounded) GTEST_SKIP() << kNoBound;
  Connect();
  const support::BoundedAddressSpace bound(kGiB);
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
  if (!support::kAddressSpaceCanBeBounded) GTEST_SKIP() << kNoBound;
  peer = std::make_unique<RawPeer>();
  link = std::make_shared<OpenLink>();
  ASSERT_EQ(link->connecting(), Status::Success);
  ASSERT_EQ(Attach(*link, peer->toLink, peer->fromLink, 2 * kGiB), Status::Success);
  const support::BoundedAddressSpace bound(kGiB);
  unsigned errorCode = 0;
  EXPECT_EQ(link->start(executor, errorCode), Status::OutOfMemory);
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_EQ(pool::Objects(), 0u) << "it has come to no task";
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
  EXPECT_FALSE(TakeSignal(peer->toLink.dataConsumed));
}

}  // namespace
}  // namespace streams
