// The owners of handles, with a close function that only takes notes.
#include "platform/raii.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int> closedValues;

void NoteClosed(int value) {
  closedValues.push_back(value);
  SetLastError(4712);
}

using OwnedNumber = Owner<int, &NoteClosed>;

class HandleOwner : public testing::Test {
 protected:
  HandleOwner() { closedValues.clear(); }
};

TEST_F(HandleOwner, ClosesWhatItHoldsOnce) {
  {
    const OwnedNumber owner(7);
    EXPECT_EQ(owner.get(), 7);
    EXPECT_TRUE(owner);
    EXPECT_THAT(closedValues, IsEmpty());
  }
  EXPECT_THAT(closedValues, ElementsAre(7));
}

TEST_F(HandleOwner, ThatHoldsNothingClosesNothing) {
  { const OwnedNumber owner; }
  EXPECT_THAT(closedValues, IsEmpty());
}

TEST_F(HandleOwner, MovesWhatItHolds) {
  {
    OwnedNumber first(7);
    const OwnedNumber second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(second.get(), 7);
  }
  EXPECT_THAT(closedValues, ElementsAre(7));
}

TEST_F(HandleOwner, MovedOverAHeldValueClosesThatValue) {
  {
    OwnedNumber first(7);
    OwnedNumber second(8);
    second = std::move(first);
    EXPECT_THAT(closedValues, ElementsAre(8));
    EXPECT_EQ(second.get(), 7);
  }
  EXPECT_THAT(closedValues, ElementsAre(8, 7));
}

TEST_F(HandleOwner, MovedToItselfKeepsItsValue) {
  {
    OwnedNumber owner(7);
    OwnedNumber& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), 7);
    EXPECT_THAT(closedValues, IsEmpty());
  }
  EXPECT_THAT(closedValues, ElementsAre(7));
}

TEST_F(HandleOwner, ReleasesItsValueUnclosed) {
  {
    OwnedNumber owner(7);
    EXPECT_EQ(owner.release(), 7);
    EXPECT_FALSE(owner);
  }
  EXPECT_THAT(closedValues, IsEmpty());
}

TEST_F(HandleOwner, ResetClosesTheOldValueAndKeepsTheNew) {
  OwnedNumber owner(7);
  owner.reset(8);
  EXPECT_THAT(closedValues, ElementsAre(7));
  EXPECT_EQ(owner.get(), 8);
  owner.reset();
  owner.reset();
  EXPECT_THAT(closedValues, ElementsAre(7, 8));
}

TEST_F(HandleOwner, AsAnOutParameterClosesWhatItHeld) {
  OwnedNumber owner(7);
  *owner.put() = 8;
  EXPECT_THAT(closedValues, ElementsAre(7));
  EXPECT_EQ(owner.get(), 8);
}

TEST_F(HandleOwner, LeavesTheLastErrorAsItWas) {
  SetLastError(4711);
  { const OwnedNumber owner(7); }
  EXPECT_THAT(closedValues, ElementsAre(7));
  EXPECT_EQ(GetLastError(), 4711U);
}

}  // namespace
