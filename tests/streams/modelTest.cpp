// Streams of two links that face each other do random things in a random order, and so does the model; after every step
// the two must agree. A run is a seed, which is printed when they do not:
//
//   LUMENAR_MODEL_SEED=4711 build/linux/tests/streams_tests --gtest_filter=StreamModel.*

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <deque>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "tests/streams/model.h"
#include "tests/streams/rawPeer.h"
#include "tests/support/meeting.h"

namespace streams {
namespace {

using model::Habits;
using model::Id;
using model::Status;

// Tells when a thread that connects has handed its Open to the link: from there on it only waits.
thread_local support::Signal* openIsSent = nullptr;

class SeesOpens final : public quill::log::Sink {
 public:
  void Write(std::int32_t, const quill::log::Location& location, std::string_view text) override {
    if (openIsSent != nullptr && std::string_view(location.function) == "send" && text.starts_with("<")) {
      openIsSent->Give();
    }
  }
};

std::u16string NameOf(const Habits& habits) {
  return {habits.accepts ? u'a' : u'r', habits.echoes ? u'e' : u'-', habits.closesAtEnd ? u'c' : u'-'};
}
Habits HabitsOf(const std::u16string& name) {
  return {.accepts = name[0] == u'a', .echoes = name[1] == u'e', .closesAtEnd = name[2] == u'c'};
}

class World {
 public:
  World() {
    for (Id side = 0; side < 2; ++side) {
      links_[side] = std::make_shared<OpenLink>();
      listeners_[side] = std::make_shared<LmIpclibLinkListener>(
          kEndpoint, [this](const std::shared_ptr<LmIpclibStream>& stream) { return Offer(stream); });
      links_[side]->Listen(listeners_[side]);
      EXPECT_EQ(links_[side]->connecting(), Status::Success);
    }
    for (Id side = 0; side < 2; ++side) {
      EXPECT_EQ(Attach(*links_[side], wires_[1 - side], wires_[side], kChannelSize), Status::Success);
      unsigned errorCode = 0;
      EXPECT_EQ(links_[side]->start(executor_, errorCode), Status::Success);
    }
    real_.resize(2);  // The control streams are the links' own.
    heard_.resize(2);
    Settle();
  }
  ~World() {
    links_ = {};
    real_.clear();
    executor_.reset();
    EXPECT_EQ(pool::Objects(), 0u);
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void Connect(Id side, Habits own, Habits others) {
    const Id id = model_.Connect(side, own, others);
    AwaitIndex(id);
    const auto stream =
        std::make_shared<LmIpclibStream>(kEndpoint, NameOf(others), StreamFlags(), executor_, Callback(id, own));
    real_[id] = stream;
    const auto sent = std::make_shared<support::Signal>();
    connects_[id] = std::async(std::launch::async, [sent, stream, link = links_[side]] {
      openIsSent = sent.get();
      const Status status = stream->connect({}, link, nullptr);
      openIsSent = nullptr;
      sent->Give();
      return status;
    });
    sent->Await();
  }
  void CompleteConnect(Id id) { EXPECT_EQ(real_[id]->completeConnect(), model_.CompleteConnect(id)); }
  void Send(Id id, const std::string& text) { EXPECT_EQ(RealSend(id, text), model_.SendText(id, text)); }
  void Close(Id id, bool withLimit) {
    const auto limit = withLimit ? std::chrono::milliseconds(1) : std::chrono::milliseconds::max();
    EXPECT_EQ(real_[id]->close(limit), model_.Close(id, withLimit));
  }
  void Shutdown(Id id) {
    model_.Shutdown(id);
    real_[id]->shutdown();
  }
  void Fire() {
    model_.Fire();
    pool::Fire();
  }
  void CloseLink(Id side) {
    model_.CloseLink(side);
    links_[side]->close();
  }
  void ShutDownLink(Id side) {
    model_.ShutDownLink(side);
    links_[side]->shutdown();
  }
  void Run(std::size_t place) {
    model_.Run(place);
    pool::Run(place);
  }

  // After each of the above.
  void Settle() {
    model_.TakeSignals();
    ASSERT_EQ(pool::Queued(), model_.queue.size());
    AwaitConnects();
    for (Id side = 0; side < 2; ++side) {
      EXPECT_EQ(NameOf(links_[side]->state()), NameOf(model_.links[side].state)) << "link " << side;
      EXPECT_EQ(links_[side]->Streams(), model_.links[side].streams.size()) << "link " << side;
    }
    for (Id id = 2; id < real_.size(); ++id) {
      if (!real_[id]) continue;
      EXPECT_EQ(NameOf(real_[id]->state()), NameOf(model_.streams[id].state)) << "stream " << id;
      EXPECT_EQ(heard_[id], model_.streams[id].heard) << "stream " << id;
    }
    EXPECT_EQ(sends_, model_.sends);
  }

  [[nodiscard]] std::size_t Queued() const { return model_.queue.size(); }
  // The streams that a user has in hand.
  [[nodiscard]] std::vector<Id> Streams() const {
    std::vector<Id> ids;
    for (Id id = 2; id < real_.size(); ++id) {
      if (real_[id]) ids.push_back(id);
    }
    return ids;
  }

 private:
  static constexpr std::uint32_t kChannelSize = 65536;

  LmIpclibStream::RecvCallback Callback(Id id, Habits habits) {
    return [this, id, habits](Status status, const std::shared_ptr<LmIpclibMsg>& message) {
      EXPECT_EQ(status, Status::Success);
      const std::string text = message->size() == 0 ? "" : TextOf(*message);
      heard_[id].push_back(text.empty() ? "<end>" : text);
      if (!text.empty() && habits.echoes && !model::IsEcho(text)) static_cast<void>(RealSend(id, "re: " + text));
      if (text.empty() && habits.closesAtEnd) static_cast<void>(real_[id]->close(std::chrono::milliseconds::max()));
    };
  }
  Status Offer(const std::shared_ptr<LmIpclibStream>& stream) {
    if (model_.offered.empty()) return Status::Unexpected;
    const Id id = model_.offered.front();
    model_.offered.pop_front();
    AwaitIndex(id);
    real_[id] = stream;
    const Habits habits = HabitsOf(stream->streamName());
    return habits.accepts ? stream->accept({}, Callback(id, habits)) : Status::AccessDenied;
  }
  Status RealSend(Id id, const std::string& text) {
    const std::string& kept = texts_.emplace_back(text);
    const std::size_t number = sends_.size();
    const auto sent = real_[id]->send({}, static_cast<std::uint32_t>(kept.size()), kept.data(),
                                      [this, number](Status status, const std::shared_ptr<LmIpclibMsg>&) {
                                        EXPECT_FALSE(sends_[number]) << "told twice";
                                        sends_[number] = status;
                                      });
    if (sent) sends_.emplace_back();
    return sent.status();
  }
  void AwaitIndex(Id id) {
    if (real_.size() > id) return;
    real_.resize(id + 1);
    heard_.resize(id + 1);
  }
  void AwaitConnects() {
    for (auto connect = connects_.begin(); connect != connects_.end();) {
      const auto& expected = model_.streams[connect->first].connected;
      if (!expected) {
        ++connect;
        continue;
      }
      EXPECT_EQ(connect->second.get(), *expected) << "stream " << connect->first;
      connect = connects_.erase(connect);
    }
  }

  std::shared_ptr<Executor> executor_ = NewExecutor();
  const Wire wires_[2] = {Wire(kChannelSize), Wire(kChannelSize)};  // Each carries what its side sends.
  std::array<std::shared_ptr<LmIpclibLinkListener>, 2> listeners_;
  std::array<std::shared_ptr<OpenLink>, 2> links_;
  // By the model's numbers.
  std::deque<std::shared_ptr<LmIpclibStream>> real_;
  std::deque<std::vector<std::string>> heard_;
  std::map<Id, std::future<Status>> connects_;
  std::list<std::string> texts_;
  std::vector<std::optional<Status>> sends_;
  model::Model model_;
};

class Actor {
 public:
  explicit Actor(std::uint64_t seed) : random_(seed) {}

  void Play() {
    const std::size_t acts = 20 + Below(60);
    for (std::size_t i = 0; i < acts && !testing::Test::HasFailure(); ++i) {
      Act();
      world_.Settle();
    }
    RunOut();
    for (Id side = 0; side < 2; ++side) {
      if (testing::Test::HasFailure()) return;
      world_.ShutDownLink(side);
      world_.Settle();
    }
    RunOut();
  }

 private:
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  bool Chance(std::size_t percent) { return Below(100) < percent; }
  Habits AnyHabits() { return {.accepts = Chance(90), .echoes = Chance(30), .closesAtEnd = Chance(60)}; }

  void Act() {
    const std::size_t queued = world_.Queued();
    if (queued != 0 && Chance(60)) return world_.Run(Below(queued));
    const std::vector<Id> streams = world_.Streams();
    const std::size_t what = Below(100);
    if (streams.empty() || (what < 15 && streams.size() < 6)) return world_.Connect(Below(2), AnyHabits(), AnyHabits());
    const Id stream = streams[Below(streams.size())];
    if (what < 40) return world_.CompleteConnect(stream);
    if (what < 70) return world_.Send(stream, "text " + std::to_string(++texts_));
    if (what < 84) return world_.Close(stream, Chance(50));
    if (what < 90) return world_.Shutdown(stream);
    if (what < 96) return world_.Fire();
    if (what < 98) return world_.CloseLink(Below(2));
    if (what < 99) return world_.ShutDownLink(Below(2));
  }
  void RunOut() {
    while (world_.Queued() != 0 && !testing::Test::HasFailure()) {
      world_.Run(Below(world_.Queued()));
      world_.Settle();
    }
  }

  std::mt19937_64 random_;
  World world_;
  int texts_ = 0;
};

TEST(StreamModel, AgreesWithWhatStreamsDo) {
  const auto watch = std::make_shared<SeesOpens>();
  ipcTrace->link()->setLevel(kTraceLevel);
  ipcTrace->link()->addSink(watch);
  std::uint64_t first = 1;
  std::uint64_t last = LUMENAR_MODEL_RUNS;
  if (const char* const only = std::getenv("LUMENAR_MODEL_SEED")) first = last = std::strtoull(only, nullptr, 10);
  for (std::uint64_t seed = first; seed <= last && !HasFailure(); ++seed) {
    SCOPED_TRACE("LUMENAR_MODEL_SEED=" + std::to_string(seed));
    Actor(seed).Play();
  }
  ipcTrace->removeAllSinks();
}

}  // namespace
}  // namespace streams
