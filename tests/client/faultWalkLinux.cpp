// Each call of the platform on the way of a request fails, one after the other; the service's calls among them, as both
// sides are in this process.
#include "client/rdeCmdClient.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/client/clientFixture.h"
#include "tests/ipc/openHandles.h"

namespace clientTests {
namespace {

// The result, and how many calls there were that can fail.
std::pair<std::uint32_t, std::size_t> PostWithFault(unsigned failAt, bool persistent) {
  Service service;
  platform::test::ArmFaults(failAt, persistent, platform::ERROR_NOT_ENOUGH_MEMORY);
  std::uint32_t result = 0;
  {
    client::RdeCmdClient client(std::chrono::milliseconds(failAt == 0 ? 10'000 : 20));
    result = client.PostRedirectionRequest(2, u"https://intranet.example/");
  }
  const std::size_t calls = platform::test::CountedCalls().size();
  platform::test::DisarmFaults();
  return {result, calls};
}

class RequestWithFaults : public testing::TestWithParam<bool> {};

TEST_P(RequestWithFaults, EndsWithoutALeak) {
  const support::Machine machine;
  const auto [result, calls] = PostWithFault(0, false);
  EXPECT_EQ(result, 1u);
  ASSERT_GT(calls, 20u);
  const std::size_t handles = ipcTests::OpenHandles();
  for (unsigned failAt = 1; failAt <= calls; ++failAt) {
    EXPECT_LE(PostWithFault(failAt, GetParam()).first, 1u);
    EXPECT_EQ(ipcTests::OpenHandles(), handles) << "call " << failAt;
  }
}

INSTANTIATE_TEST_SUITE_P(Calls, RequestWithFaults, testing::Bool());

}  // namespace
}  // namespace clientTests
