#include "lib/ipc/ipclib/messageQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace quill::ipc;
using testing::ElementsAre;
using testing::IsEmpty;

// A message that is told by its size.
std::shared_ptr<LmIpclibMsg> Message(std::uint32_t size) {
  return std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Msg, 0, LmIpcStatusCode::Success, 1, 2, size);
}

MessageQueue Of(std::initializer_list<std::uint32_t> sizes) {
  MessageQueue queue;
  for (const std::uint32_t size : sizes) queue.push_back(Message(size));
  return queue;
}

std::vector<std::uint32_t> AllOf(MessageQueue& queue) {
  std::vector<std::uint32_t> sizes;
  while (!queue.empty()) sizes.push_back(queue.takeFront()->size());
  return sizes;
}

TEST(MessageQueue, GivesOutInTheOrderOfJoining) {
  MessageQueue queue = Of({3, 1, 2});
  EXPECT_EQ(queue.size(), 3U);
  EXPECT_EQ(queue.front()->size(), 3U);
  EXPECT_THAT(AllOf(queue), ElementsAre(3, 1, 2));
  EXPECT_TRUE(queue.empty());
  queue.push_back(Message(7));
  EXPECT_THAT(AllOf(queue), ElementsAre(7));
}

TEST(MessageQueue, TakesOverWhatAnotherHasBehindItsOwn) {
  MessageQueue queue = Of({1, 2});
  MessageQueue other = Of({3, 4});
  queue.append(other);
  EXPECT_TRUE(other.empty());
  other.push_back(Message(5));
  queue.append(other);
  queue.append(other);
  queue.push_back(Message(6));
  EXPECT_THAT(AllOf(queue), ElementsAre(1, 2, 3, 4, 5, 6));
  queue.append(other);
  EXPECT_THAT(AllOf(queue), IsEmpty());
}

TEST(MessageQueue, CanBeExchangedAndMoved) {
  MessageQueue queue = Of({1, 2});
  MessageQueue other;
  queue.swap(other);
  queue.push_back(Message(9));
  other.push_back(Message(3));
  EXPECT_THAT(AllOf(queue), ElementsAre(9));
  queue = std::exchange(other, {});
  EXPECT_TRUE(other.empty());
  EXPECT_THAT(AllOf(queue), ElementsAre(1, 2, 3));
}

TEST(MessageQueue, LeavesAMessageThatHasLeftItAlone) {
  MessageQueue queue = Of({1, 2});
  const auto first = queue.takeFront();
  const std::weak_ptr<LmIpclibMsg> second = queue.front();
  queue.clear();
  EXPECT_TRUE(second.expired());
  EXPECT_EQ(first.use_count(), 1);
}

TEST(MessageQueue, MayBeVeryLongWhenItEnds) {
  MessageQueue queue;
  for (int i = 0; i < 300'000; ++i) queue.push_back(Message(1));
  const std::weak_ptr<LmIpclibMsg> first = queue.front();
  queue = MessageQueue();
  EXPECT_TRUE(first.expired());
}

}  // namespace
