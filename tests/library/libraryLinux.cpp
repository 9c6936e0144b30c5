// What only Linux can provoke: calls that fail.
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/library/libraryFixture.h"

namespace library {
namespace {

class Fails {
 public:
  explicit Fails(const char* call) { platform::test::ArmFaultsOf(call, platform::ERROR_NOT_ENOUGH_MEMORY); }
  ~Fails() { platform::test::DisarmFaults(); }
  Fails(const Fails&) = delete;
  Fails& operator=(const Fails&) = delete;
};

using LibraryInit = Library;

TEST_F(LibraryInit, WithoutACleanupGroupFailsAndMayBeTriedAgain) {
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  {
    const Fails fails("CreateThreadpoolCleanupGroup");
    EXPECT_EQ(library->init(0), Status::Unexpected);
  }
  EXPECT_THAT(sink->TakeTexts(),
              ElementsAre("> state: Init", "> ", "< status: Unexpected", "< state: Init, status: Unexpected"));
  EXPECT_EQ(library->state(), LmIpclib::State::Init);
  EXPECT_EQ(Connect().status(), Status::InvalidState) << "there is no executor";
  EXPECT_EQ(library->init(0), Status::Success);
  EXPECT_TRUE(Connected());
}

TEST_F(LibraryInit, ThatFailedNeedsNoMoreThanItsUninit) {
  const Fails fails("CreateThreadpoolCleanupGroup");
  EXPECT_EQ(library->init(0), Status::Unexpected);
  EXPECT_EQ(library->uninit(), Status::Success);
}

}  // namespace
}  // namespace library
