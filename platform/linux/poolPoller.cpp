#include "platform/linux/poolPoller.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iterator>
#include <list>
#include <memory>
#include <new>
#include <utility>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/hostError.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLookEvery = 1ms;
// A pool whose threads have all been busy for so many looks gets one more.
constexpr unsigned kLooksUntilGrowth = 10;

struct ClockTimers {
  Descriptor alarm;  // A timerfd, set to the earliest deadline or an earlier time.
  SetTimers timers;
};

// REQUIRES: the lock, for all but the descriptors and Run.
class Poller {
 public:
  // The host's error, or 0.
  [[nodiscard]] int Start(TP_POOL& first);
  void Run() noexcept;

  void Watch(TP_POOL& pool) noexcept;
  void Unwatch(TP_POOL& pool) noexcept;
  void Await(int descriptor) noexcept;
  void SetAlarm(ClockTimers& clock) noexcept;

  [[nodiscard]] bool TakePlace() noexcept;
  void LeavePlace(TP_POOL& pool) noexcept;
  void FillPlace() noexcept;
  // Without the lock.
  void Poll(PolledEvents& polled, int milliseconds) const noexcept;
  void Serve(const PolledEvents& polled) noexcept;
  void Interrupt() const noexcept;

  ArmedWaits waits;
  std::array<ClockTimers, 2> clocks;  // By TimerClock.

 private:
  enum class Place : std::uint8_t { Free, Pollers, Pools };

  [[nodiscard]] int Add(int descriptor) noexcept;
  [[nodiscard]] bool MayPoll() noexcept;
  void PollItself(PoolLock lock, bool looks) noexcept;
  void Doze(PoolLock lock, bool looks) noexcept;
  void Serve(int descriptor) noexcept;
  void ServeWaits(int descriptor) noexcept;
  void ServeTimers(TimerClock clock) noexcept;
  void LookAtPools() noexcept;
  // The next of the watched pools that this look has not seen.
  [[nodiscard]] TP_POOL* NextToLookAt(std::size_t& seen) noexcept;

  Descriptor epoll_;
  Descriptor wakeUp_;         // An eventfd; interrupts a sleep that has no end.
  TP_POOL* first_ = nullptr;  // The pool that the poller was started for.
  Place place_ = Place::Free;
  // How often it was left, having served something; and once more, for the place is the first thread's of a pool.
  std::uint64_t placeUses_ = 1;
  std::uint64_t usesSeen_ = 0;  // By the poller.
  std::condition_variable dozed_;
  std::list<TP_POOL*> watched_;
};

Poller* thePoller = nullptr;  // Never destroyed. REQUIRES: the lock, or that it was once seen.

void* RunPoller(void* poller) {
  static_cast<Poller*>(poller)->Run();
  return nullptr;
}

int Poller::Start(TP_POOL& first) {
  epoll_ = Descriptor(epoll_create1(EPOLL_CLOEXEC));
  wakeUp_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  clocks[0].alarm = Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  clocks[1].alarm = Descriptor(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!epoll_ || !wakeUp_ || !clocks[0].alarm || !clocks[1].alarm) return errno;
  for (const Descriptor* each : {&wakeUp_, &clocks[0].alarm, &clocks[1].alarm}) {
    if (const int error = Add(each->get()); error != 0) return error;
  }
  first_ = &first;
  ExpectWorker(first);
  pthread_t thread{};
  const int error = pthread_create(&thread, nullptr, &RunPoller, this);
  if (error != 0) {
    ForgoWorker(first);
  } else {
    pthread_detach(thread);
  }
  return error;
}

int Poller::Add(int descriptor) noexcept {
  epoll_event request{.events = EPOLLIN, .data = {.fd = descriptor}};
  return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &request) == 0 ? 0 : errno;
}

void Poller::Run() noexcept {
  StartWorker(*first_);
  Clock::time_point nextLook = Clock::now();
  while (true) {
    PoolLock lock = LockPools();
    const bool looks = !watched_.empty();
    if (MayPoll()) {
      PollItself(std::move(lock), looks);
    } else {
      Doze(std::move(lock), looks);
    }
    const Clock::time_point now = Clock::now();
    if (looks && now >= nextLook) LookAtPools();
    if (!looks || now >= nextLook) nextLook = now + kLookEvery;
  }
}

// Whoever has just left the place is likely to be back in a moment.
bool Poller::MayPoll() noexcept { return std::exchange(usesSeen_, placeUses_) == placeUses_ && place_ == Place::Free; }

void Poller::PollItself(PoolLock lock, bool looks) noexcept {
  place_ = Place::Pollers;
  lock.unlock();
  PolledEvents polled;
  Poll(polled, looks ? static_cast<int>(kLookEvery.count()) : -1);
  Serve(polled);
  lock.lock();
  place_ = Place::Free;
  if (polled.count > 0) ++placeUses_;
}

void Poller::Doze(PoolLock lock, bool looks) noexcept {
  if (place_ == Place::Pools && !looks) {
    dozed_.wait(lock);
  } else {
    dozed_.wait_for(lock, kLookEvery);
  }
}

bool Poller::TakePlace() noexcept {
  if (place_ != Place::Free) return false;
  place_ = Place::Pools;
  return true;
}

void Poller::LeavePlace(TP_POOL& pool) noexcept {
  place_ = Place::Free;
  ++placeUses_;
  Watch(pool);
}

void Poller::FillPlace() noexcept {
  if (place_ != Place::Free) return;
  usesSeen_ = placeUses_;
  dozed_.notify_one();
}

void Poller::Poll(PolledEvents& polled, int milliseconds) const noexcept {
  polled.count = epoll_wait(epoll_.get(), polled.events.data(), static_cast<int>(polled.events.size()), milliseconds);
}

void Poller::Serve(const PolledEvents& polled) noexcept {
  for (int i = 0; i < polled.count; ++i) Serve(polled.events[static_cast<std::size_t>(i)].data.fd);
}

void Poller::Interrupt() const noexcept {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wakeUp_.get(), &one, sizeof one);
}

void Poller::Serve(int descriptor) noexcept {
  std::uint64_t count = 0;
  if (descriptor == wakeUp_.get()) {
    [[maybe_unused]] const ssize_t got = read(descriptor, &count, sizeof count);
  } else if (descriptor == clocks[0].alarm.get()) {
    ServeTimers(TimerClock::Steady);
  } else if (descriptor == clocks[1].alarm.get()) {
    ServeTimers(TimerClock::System);
  } else {
    ServeWaits(descriptor);
  }
}

// Each signal goes to one wait; those that get none wait on.
void Poller::ServeWaits(int descriptor) noexcept {
  bool more = true;
  while (more) {
    PoolLock lock = LockPools();
    const auto [first, last] = waits.equal_range(descriptor);
    if (first == last) return;
    TP_WAIT& wait = *first->second;
    if (!ConsumeSignal(wait)) return Await(descriptor);
    // A callback that arms its wait anew may be ahead of us; that wait has asked for the descriptor itself.
    more = std::next(first) != last;
    Fired(wait, waits.extract(first), std::move(lock));
  }
}

void Poller::ServeTimers(TimerClock clock) noexcept {
  ClockTimers& served = clocks[static_cast<std::size_t>(clock)];
  std::uint64_t count = 0;
  // Nothing to read, or a clock that was set: either way the timers tell what is due.
  [[maybe_unused]] const ssize_t got = read(served.alarm.get(), &count, sizeof count);
  while (true) {
    PoolLock lock = LockPools();
    if (served.timers.empty()) return;
    const auto first = served.timers.begin();
    if (first->first > Now(clock)) return SetAlarm(served);
    TP_TIMER& timer = *first->second;
    Fired(timer, served.timers.extract(first), std::move(lock));
  }
}

void Poller::SetAlarm(ClockTimers& clock) noexcept {
  const std::int64_t deadline = std::max<std::int64_t>(1, clock.timers.begin()->first);  // 0 would unset it.
  const itimerspec alarm{.it_interval = {},
                         .it_value = {.tv_sec = deadline / 1'000'000'000, .tv_nsec = deadline % 1'000'000'000}};
  const bool system = &clock == &clocks[static_cast<std::size_t>(TimerClock::System)];
  timerfd_settime(clock.alarm.get(), TFD_TIMER_ABSTIME | (system ? TFD_TIMER_CANCEL_ON_SET : 0), &alarm, nullptr);
}

void Poller::Await(int descriptor) noexcept {
  epoll_event request{.events = EPOLLIN | EPOLLONESHOT, .data = {.fd = descriptor}};
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, descriptor, &request) == 0) return;
  // A descriptor that was closed is forgotten by itself, so this number may stand for another object by now.
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &request) == 0) return;
  std::abort();  // The caller cannot be told, and would wait forever.
}

void Poller::Watch(TP_POOL& pool) noexcept {
  if (pool.watched) return;
  pool.watched = true;
  pool.begunAtLook = pool.begun;
  pool.looksWithoutProgress = 0;
  watched_.splice(watched_.end(), pool.watching);
  if (watched_.size() > 1) return;
  if (place_ == Place::Pollers) {
    Interrupt();
  } else {
    dozed_.notify_one();
  }
}

void Poller::Unwatch(TP_POOL& pool) noexcept {
  if (!pool.watched) return;
  pool.watched = false;
  pool.watching.splice(pool.watching.end(), watched_, pool.inWatch);
}

TP_POOL* Poller::NextToLookAt(std::size_t& seen) noexcept {
  if (seen >= watched_.size()) return nullptr;
  return *std::next(watched_.begin(), static_cast<std::ptrdiff_t>(seen++));
}

void Poller::LookAtPools() noexcept {
  std::size_t seen = 0;
  while (true) {
    PoolLock lock = LockPools();
    TP_POOL* const pool = NextToLookAt(seen);
    if (pool == nullptr) return;
    const std::uint64_t begun = pool->begun;
    if (begun != std::exchange(pool->begunAtLook, begun)) {
      pool->looksWithoutProgress = 0;
    } else if (pool->queue.empty() || !CanBringMore(*pool)) {
      Unwatch(*pool);
      --seen;
    } else {
      const bool mayStart = ++pool->looksWithoutProgress % kLooksUntilGrowth == 0;
      BringOneMore(*pool, mayStart, std::move(lock));
    }
  }
}

}  // namespace

bool StartPoller(TP_POOL& first) noexcept try {
  const PoolLock lock = LockPools();
  if (thePoller != nullptr) return true;
  auto poller = std::make_unique<Poller>();
  if (const int error = poller->Start(first); error != 0) {
    SetLastError(ErrorFromHost(error));
    return false;
  }
  thePoller = poller.release();
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

void Watch(TP_POOL& pool) noexcept { thePoller->Watch(pool); }

void Unwatch(TP_POOL& pool) noexcept {
  if (pool.watched) thePoller->Unwatch(pool);
}

bool TakePollersPlace() noexcept { return thePoller->TakePlace(); }

void LeavePollersPlace(TP_POOL& pool) noexcept { thePoller->LeavePlace(pool); }

void FillPollersPlace() noexcept { thePoller->FillPlace(); }

void PollInPlace(PolledEvents& polled) noexcept { thePoller->Poll(polled, -1); }

void ServePolled(const PolledEvents& polled) noexcept { thePoller->Serve(polled); }

void WakePlace() noexcept { thePoller->Interrupt(); }

ArmedWaits::iterator ArmWait(ArmedWaits::node_type entry) noexcept {
  const auto armed = thePoller->waits.insert(std::move(entry));
  thePoller->Await(armed->first);
  return armed;
}

ArmedWaits::node_type DisarmWait(ArmedWaits::iterator entry) noexcept { return thePoller->waits.extract(entry); }

SetTimers::iterator SetTimer(TimerClock clock, SetTimers::node_type entry) noexcept {
  ClockTimers& of = thePoller->clocks[static_cast<std::size_t>(clock)];
  const auto set = of.timers.insert(std::move(entry));
  if (set == of.timers.begin()) thePoller->SetAlarm(of);
  return set;
}

SetTimers::node_type UnsetTimer(TimerClock clock, SetTimers::iterator entry) noexcept {
  // The alarm may ring for nothing, once.
  return thePoller->clocks[static_cast<std::size_t>(clock)].timers.extract(entry);
}

std::int64_t Now(TimerClock clock) noexcept {
  timespec now{};
  clock_gettime(clock == TimerClock::Steady ? CLOCK_MONOTONIC : CLOCK_REALTIME, &now);
  return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

}  // namespace platform
