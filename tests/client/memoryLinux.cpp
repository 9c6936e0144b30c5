#include <new>

#include "tests/client/clientFixture.h"
#include "tests/support/addressSpaceLinux.h"

namespace clientTests {
namespace {

TEST(IpcClientWithoutMemory, ThrowsOutOfASendAndGoesOnWorking) {
  if (!support::kAddressSpaceCanBeBounded) GTEST_SKIP() << "a sanitizer's allocator ends the process itself";
  Service service;
  const Logged logged;
  Talker client;
  ASSERT_EQ(client.ConnectToStream(kEndpoint, 0), Status::Success);
  static_cast<void>(logged.lines->Take());
  const std::uint8_t letter = 'x';  // There are no more: nothing is read before there is room for all of it.
  {
    const support::BoundedAddressSpace bound(rlim_t{1} << 30);
    EXPECT_THROW(static_cast<void>(client.SendMsg(&letter, 0x80000000)), std::bad_alloc);
  }
  EXPECT_THAT(logged.lines->Take(), IsEmpty());
  EXPECT_NE(client.SendMsg(&letter, 1), 0);
  EXPECT_EQ(service.NextMessage(), "x");
  EXPECT_EQ(client.CloseStream(), Status::Success);
}

}  // namespace
}  // namespace clientTests
