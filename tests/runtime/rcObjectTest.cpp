#include "runtime/rcObject.h"

#include <gtest/gtest.h>

#include <atomic>

#include <thread>
#include <vector>

#include "runtime/rcPtr.h"
#include "runtime/wkPtr.h"
#include "tests/support/meeting.h"

using runtime::RCObject;
using runtime::RCPtr;
using runtime::WkPtr;
using runtime::WkReference;

namespace {

std::atomic<int> alive = 0;

struct Thing : RCObject {
  Thing() { ++alive; }
  ~Thing() override { --alive; }
};

struct SpecialThing : Thing {};

struct Stranger : RCObject {};

struct OnTheStack : Thing {
  OnTheStack() { counted = false; }
};

// Comes back from death, and tells what it could see meanwhile.
struct Pooled : Thing {
  bool OnLastRelease() override {
    ++returns;
    countWhileDying = Count();
    WkReference* const weak = GetWeakReference();
    weakWhileDying = weak != nullptr;
    if (weak != nullptr) weak->Release();
    if (keepWhileDying) kept = RCPtr<Pooled>(this);
    return true;
  }
  int returns = 0;
  std::uint32_t countWhileDying = 0;
  bool weakWhileDying = true;
  bool keepWhileDying = false;
  RCPtr<Pooled> kept;
};

struct WithoutMemoryForWeakOnes : Thing {
  WkReference* CreateWeakReference() noexcept override { return nullptr; }
};

class RCObjectTest : public testing::Test {
 protected:
  ~RCObjectTest() override { EXPECT_EQ(alive, 0); }
};

using RCPtrTest = RCObjectTest;
using WkPtrTest = RCObjectTest;

TEST_F(RCObjectTest, StartsAtZeroAndTheFirstPointerMakesItOne) {
  auto* const thing = new Thing;
  EXPECT_EQ(thing->Count(), 0u);
  const RCPtr<Thing> pointer(thing);
  EXPECT_EQ(thing->Count(), 1u);
}

TEST_F(RCObjectTest, AddRefAndReleaseReturnTheNewCount) {
  auto* const thing = new Thing;
  EXPECT_EQ(thing->AddRef(), 1u);
  EXPECT_EQ(thing->AddRef(), 2u);
  EXPECT_EQ(thing->Release(), 1u);
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(thing->Release(), 0u);
  EXPECT_EQ(alive, 0);
}

TEST_F(RCObjectTest, AReleaseAtZeroChangesNothing) {
  Thing thing;
  EXPECT_EQ(thing.Release(), 0u);
  EXPECT_EQ(thing.Count(), 0u);
  EXPECT_EQ(alive, 1);
}

TEST_F(RCObjectTest, AnObjectThatIsNotCountedSurvivesAnyNumberOfAddRefAndReleasePairs) {
  OnTheStack thing;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(thing.AddRef(), 0u);
    EXPECT_EQ(thing.Release(), 0u);
  }
  { const RCPtr<OnTheStack> pointer(&thing); }
  EXPECT_EQ(alive, 1);
}

TEST_F(RCObjectTest, AWeakPointerToAnObjectThatIsNotCountedIsEmptyOnceTheObjectHasGone) {
  WkPtr<Thing> weak;
  {
    OnTheStack thing;
    weak = WkPtr<Thing>(&thing);
    EXPECT_EQ(weak.Lock().Get(), &thing);
  }
  EXPECT_FALSE(weak.Lock());
}

TEST_F(RCObjectTest, TheCountHoldsTheMarkerWhileTheObjectDies) {
  Pooled pooled;
  pooled.AddRef();
  EXPECT_EQ(pooled.Release(), 0u);
  EXPECT_EQ(pooled.countWhileDying, 0xDEAD00u);
  EXPECT_EQ(pooled.countWhileDying, 14'593'280u);
}

TEST_F(RCObjectTest, AWeakReferenceAskedForDuringTheLastReleaseIsNull) {
  Pooled pooled;
  pooled.AddRef();
  pooled.Release();
  EXPECT_EQ(pooled.returns, 1);
  EXPECT_FALSE(pooled.weakWhileDying);
}

TEST_F(RCObjectTest, APooledObjectCountsZeroAgainAndGivesAFreshWeakReference) {
  Pooled pooled;
  WkPtr<Pooled> before;
  {
    const RCPtr<Pooled> pointer(&pooled);
    before = WkPtr<Pooled>(pointer);
  }
  EXPECT_EQ(pooled.Count(), 0u);
  EXPECT_FALSE(before.Lock());

  const RCPtr<Pooled> again(&pooled);
  const WkPtr<Pooled> after(again);
  EXPECT_EQ(after.Lock(), again);
  EXPECT_FALSE(before.Lock());
}

TEST_F(RCObjectTest, AReferenceTakenWhileDyingSurvivesTheReturn) {
  Pooled pooled;
  pooled.keepWhileDying = true;
  pooled.AddRef();
  EXPECT_EQ(pooled.Release(), 1u);
  EXPECT_EQ(pooled.Count(), 1u);
  pooled.keepWhileDying = false;
  pooled.kept.Reset();
  EXPECT_EQ(pooled.Count(), 0u);
  EXPECT_EQ(pooled.returns, 2);
}

TEST_F(RCObjectTest, EveryAskerSharesOneWeakReferenceAndOwnsAReferenceToIt) {
  const RCPtr<Thing> thing(new Thing);
  WkReference* const first = thing->GetWeakReference();
  WkReference* const second = thing->GetWeakReference();
  EXPECT_EQ(first, second);
  EXPECT_EQ(first->Count(), 3u);  // The object's own, and ours.
  first->Release();
  second->Release();
  EXPECT_EQ(first->Count(), 1u);
}

TEST_F(RCObjectTest, WithoutMemoryForAWeakReferenceTheWeakPointerIsEmpty) {
  const RCPtr<WithoutMemoryForWeakOnes> thing(new WithoutMemoryForWeakOnes);
  const WkPtr<WithoutMemoryForWeakOnes> weak(thing);
  EXPECT_FALSE(weak);
  EXPECT_FALSE(weak.Lock());
}

TEST_F(RCPtrTest, AssigningAPointerToItselfKeepsTheObject) {
  RCPtr<Thing> pointer(new Thing);
  RCPtr<Thing>& same = pointer;
  pointer = same;
  pointer = pointer.Get();
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(pointer->Count(), 1u);
}

TEST_F(RCPtrTest, AssignmentReleasesWhatWasThere) {
  RCPtr<Thing> pointer(new Thing);
  pointer = RCPtr<Thing>(new Thing);
  EXPECT_EQ(alive, 1);
  pointer = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST_F(RCPtrTest, ResetAndTheDestructorRelease) {
  RCPtr<Thing> pointer(new Thing);
  {
    RCPtr<Thing> copy;
    copy = pointer;
    EXPECT_EQ(pointer->Count(), 2u);
  }
  EXPECT_EQ(pointer->Count(), 1u);
  pointer.Reset();
  EXPECT_FALSE(pointer);
  EXPECT_EQ(alive, 0);
}

TEST_F(RCPtrTest, ARelatedTypeIsCheckedAsTheProgramRuns) {
  const RCPtr<Thing> special(new SpecialThing);
  RCPtr<SpecialThing> down;
  down = special;
  EXPECT_EQ(down.Get(), special.Get());

  const RCPtr<Thing> plain(new Thing);
  down = plain;
  EXPECT_FALSE(down);
  EXPECT_EQ(plain->Count(), 1u);
}

TEST_F(RCPtrTest, AnUnrelatedTypeGivesAnEmptyPointer) {
  const RCPtr<RCObject> object(new Stranger);
  const RCPtr<Thing> thing(object);
  EXPECT_FALSE(thing);
  EXPECT_EQ(object->Count(), 1u);
}

TEST_F(WkPtrTest, LocksToTheObjectWhileItLives) {
  const RCPtr<Thing> thing(new Thing);
  const WkPtr<Thing> weak(thing);
  EXPECT_EQ(thing->Count(), 1u);
  const RCPtr<Thing> locked = weak.Lock();
  EXPECT_EQ(locked, thing);
  EXPECT_EQ(thing->Count(), 2u);
}

TEST_F(WkPtrTest, ToAnObjectThatDiedLocksToEmpty) {
  RCPtr<Thing> thing(new Thing);
  const WkPtr<Thing> weak(thing);
  thing.Reset();
  EXPECT_FALSE(weak.Lock());
  EXPECT_TRUE(weak);  // What remains of the object is still held.
}

TEST_F(WkPtrTest, EmptyOnesLockToEmpty) {
  EXPECT_FALSE(WkPtr<Thing>().Lock());
  EXPECT_FALSE(WkPtr<Thing>(static_cast<Thing*>(nullptr)).Lock());
  EXPECT_FALSE(WkPtr<Thing>(RCPtr<Thing>()).Lock());
}

TEST_F(WkPtrTest, OfATypeThatTheObjectIsNotLocksToEmpty) {
  // The weak reference is the object's; what it is locked to is checked.
  const RCPtr<Thing> thing(new Thing);
  WkPtr<SpecialThing> weak;
  weak.RCPtr<WkReference>::operator=(RCPtr<WkReference>::Adopt(thing->GetWeakReference()));
  EXPECT_FALSE(weak.Lock());
  EXPECT_EQ(thing->Count(), 1u);
}

// Each thread takes and drops strong and weak references to objects that come and go under its hands.
TEST_F(RCObjectTest, EightThreadsThatTakeAndDropReferencesLoseNone) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 2'000;
  RCPtr<Thing> current(new Thing);
  std::atomic<int> wrong = 0;
  support::StartLine start(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      start.ArriveAndWait();
      for (int round = 0; round < kRounds; ++round) {
        RCPtr<Thing> own(new Thing);
        const WkPtr<Thing> weakToOwn(own);
        const WkPtr<Thing> weakToShared(current);
        if (weakToShared.Lock().Get() != current.Get() || weakToOwn.Lock() != own) ++wrong;
        own.Reset();
        if (weakToOwn.Lock()) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(current->Count(), 1u);
  EXPECT_EQ(alive, 1);
}

// One thread drops the last strong reference while others lock the weak one: they get the object whole, or nothing.
TEST_F(WkPtrTest, LockingWhileTheLastReferenceGoesGivesTheObjectOrNothing) {
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    RCPtr<Thing> thing(new Thing);
    const WkPtr<Thing> weak(thing);
    support::StartLine start(3);
    std::atomic<int> dead = 0;
    const auto lock = [&] {
      start.ArriveAndWait();
      const RCPtr<Thing> locked = weak.Lock();
      if (locked && locked->Count() >= runtime::kDyingCount) ++dead;
    };
    std::thread first(lock);
    std::thread second(lock);
    start.ArriveAndWait();
    thing.Reset();
    first.join();
    second.join();
    ASSERT_EQ(dead, 0);
    ASSERT_EQ(alive, 0);
  }
}

}  // namespace
