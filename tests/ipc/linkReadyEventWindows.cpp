// Who may use the event by which a service says that it has come up: only Windows keeps that.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "lib/ipc/ipclib/linkReadyEvent.h"
#include "tests/ipc/eventSecurity.h"

namespace {

constexpr platform::GUID kEndpoint{0x3B0A1F52, 0x6C1D, 0x4E0B, {1, 2, 3, 4, 5, 6, 7, 8}};

TEST(LinkReadyEventOnWindows, TakesTheDescriptorOfWhoMayUseIt) {
  // Revision 1, with a list that is not there.
  alignas(8) std::array<std::uint8_t, 40> everybody{1, 0, 4, 0};
  const platform::UniqueEvent ours = quill::ipc::getLinkReadyEvent(kEndpoint, everybody.data());
  ASSERT_TRUE(ours);
  EXPECT_TRUE(ipcTests::IsForEverybody(ours.get().value()));
}

TEST(LinkReadyEventOnWindows, HasTheDescriptorOfTheProcessWithoutAnother) {
  const platform::UniqueEvent ours = quill::ipc::getLinkReadyEvent(kEndpoint, nullptr);
  ASSERT_TRUE(ours);
  EXPECT_FALSE(ipcTests::IsForEverybody(ours.get().value()));
}

}  // namespace
