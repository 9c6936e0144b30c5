#include "runtime/pollThread.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <mutex>
#include <system_error>
#include <vector>

#include "runtime/logCalls.h"
#include "runtime/pollScheduler.h"
#include "runtime/textFormat.h"
#include "runtime/wkPtr.h"

namespace runtime {
namespace {

template <class Value>
using UserDataMap = std::map<std::uint64_t, Value>;

// Items and the system's threads know a poll thread by its number: so one that has gone is noticed.
struct Registry {
  TxMutex mutex;
  std::uint64_t counter = 0;
  UserDataMap<WkPtr<TxPollThread>> threads;
};

// Never destroyed: threads may still be looked for while the process ends.
Registry& TheRegistry() {
  static auto& registry = *new Registry;
  return registry;
}

std::uint64_t Register(TxPollThread* thread) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  do ++registry.counter;
  while (registry.counter == 0 || registry.threads.contains(registry.counter));
  registry.threads.emplace(registry.counter, thread);
  return registry.counter;
}

void Unregister(std::uint64_t id) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  registry.threads.erase(id);
}

}  // namespace

TxPollThread::TxPollThread(const std::string& threadName)
    : name(threadName), thread("TxPoll-" + threadName), id(Register(this)) {}

TxPollThread::~TxPollThread() {
  LogIfWanted("TxPollThread::~TxPollThread()", logLevel, "%s: 0x%p", name, this);
  Unregister(id);
  const std::lock_guard lock(Lock());
  for (const RCPtr<TxPollItem>& item : items) item->ownerId = 0;
}

RCPtr<TxPollThread> TxPollThread::Find(std::uint64_t id) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  const auto found = registry.threads.find(id);
  return found != registry.threads.end() ? found->second.Lock() : RCPtr<TxPollThread>();
}

bool TxPollThread::StartScheduler() {
  const auto start = [this] {
    try {
      return thread.Start(&RunScheduler, const_cast<void*>(ThreadIdPointer(id)), -1, false);
    } catch (const std::system_error&) {
      return false;
    }
  };
  if (thread.IsRunning() || start() || thread.IsRunning()) return true;  // Somebody else may have started it meanwhile.
  Log("TxPollThread::StartScheduler()", 1, "%s: Failed to start scheduler thread", name);
  return false;
}

bool TxPollThread::RunScheduler(void* id) {
  const RCPtr<TxPollThread> thread = Find(reinterpret_cast<std::uintptr_t>(id));
  if (thread) return PollScheduler(*thread.Get()).Run();
  Log("TxPollThread::RunScheduler()", 4, "TxPollThread 0x%p not found", id);
  return false;
}

void TxPollThread::SetSessionId(std::int32_t session) {
  const std::lock_guard lock(Lock());
  sessionId = session;
  LookAgain();
}

void TxPollThread::Queue(const RCPtr<TxPollItem>& item) {
  if (item->ownerId == id) Unlink(*item);
  item->ownerId = id;
  item->listPosition = items.insert(items.end(), item);
  item->timer.Mark(TimerOperation::Restart);
  // Whoever waits for the end of the last run may not have seen it yet.
  if (item->disableCount < TxPollItem::kAwaited) item->doneEvent.Reset();
  LookAgain();
}

void TxPollThread::Unlink(TxPollItem& item) { items.erase(item.listPosition); }

bool TxPollThread::AddItem(const RCPtr<TxPollItem>& item) {
  constexpr const char* kAddItem = "TxPollThread::AddItem()";
  const std::lock_guard lock(Lock());
  if (!item) {
    Log(kAddItem, 4, "%s: item == NULL", name);
    return false;
  }
  const std::uint64_t owner = item->ownerId;
  if (owner != 0 && owner != id) {
    Log(kAddItem, 4, "%s: Item %s already belongs to 0x%p", name, item->Name(), ThreadIdPointer(owner));
    return false;
  }
  if (autoStart && items.empty() && !StartScheduler()) {
    Log(kAddItem, 4, "%s: Item %s not added", name, item->Name());
    return false;
  }
  Queue(item);
  LogIfWanted(kAddItem, logLevel, "%s: Item %s added", name, item->Name());
  return true;
}

bool TxPollThread::AddItem(const RCPtr<TxPollItem>& item, const RCPtr<TxEvent>& event, std::int32_t timeoutMs) {
  const std::lock_guard lock(Lock());
  if (!AddItem(item)) return false;
  item->SetEvent(event);
  item->SetTimeoutMS(timeoutMs, true);
  return true;
}

bool TxPollThread::RemoveItem(const RCPtr<TxPollItem>& item, bool wait) {
  const std::lock_guard lock(Lock());
  return RemoveLocked(item, wait);
}

bool TxPollThread::RemoveLocked(const RCPtr<TxPollItem>& item, bool wait) {
  constexpr const char* kRemoveItem = "TxPollThread::RemoveItem()";
  if (!item) {
    Log(kRemoveItem, 4, "%s: item == NULL", name);
    return false;
  }
  const std::uint64_t owner = item->ownerId;
  if (owner == 0) return false;
  if (owner != id) {
    Log(kRemoveItem, 4, "%s: Item %s belongs to 0x%p", name, item->Name(), ThreadIdPointer(owner));
    return false;
  }
  const RCPtr<TxPollItem> kept(item.Get());  // The caller's own may be the one in the list.
  if (wait) WaitLocked(kept);
  if (kept->ownerId != id) {
    Log(kRemoveItem, 4, "%s: Item %s not found", name, kept->Name());
    return false;
  }
  Unlink(*kept);
  kept->ownerId = 0;
  LookAgain();
  LogIfWanted(kRemoveItem, logLevel, "%s: Item %s removed", name, kept->Name());
  return true;
}

void TxPollThread::RemoveAllItems(bool wait) {
  const std::lock_guard lock(Lock());
  const std::vector<RCPtr<TxPollItem>> present(items.begin(), items.end());
  for (const RCPtr<TxPollItem>& item : present) {
    const bool removed = RemoveLocked(item, wait);
    LogIfWanted("TxPollThread::RemoveAllItems()", logLevel, "%s: Item %s %s", name, item->Name(),
                removed ? "removed" : "not found");
  }
}

void TxPollThread::WaitForItemToComplete(const RCPtr<TxPollItem>& item) {
  const std::lock_guard lock(Lock());
  WaitLocked(item);
}

void TxPollThread::WaitLocked(const RCPtr<TxPollItem>& item) {
  constexpr const char* kWait = "TxPollThread::WaitForItemToComplete()";
  const RCPtr<TxPollItem> running = runningItem;
  if (!running || (item && !(item == running)) || thread.IsCurrentThread()) return;
  const std::string what = item ? item->Name() : "all items";
  LogIfWanted(kWait, logLevel, "%s: Waiting for %s to complete", name, what);
  std::vector<RCPtr<TxPollItem>> held{running};
  if (!item) {
    std::ranges::copy_if(items, std::back_inserter(held), [&](const auto& each) { return !(each == running); });
  }
  for (const RCPtr<TxPollItem>& each : held) each->disableCount += TxPollItem::kAwaited;
  const bool completed = [&] {
    const Unlocked unlocked(Lock());
    return running->doneEvent.Wait(TxEvent::kNoLimit) == 0;
  }();
  for (const RCPtr<TxPollItem>& each : held) each->disableCount -= TxPollItem::kAwaited;
  LookAgain();
  LogIfWanted(kWait, logLevel, "%s: %s %s", name, what, completed ? "completed" : "did not complete");
}

void TxPollThread::LogAllItems(int level) {
  constexpr const char* kLogAllItems = "TxPollThread::LogAllItems()";
  const std::lock_guard lock(Lock());
  Log(kLogAllItems, level, "%s - %lld item%s\n", name, items.size(), items.size() == 1 ? "" : "s");
  const auto truth = [](bool value) { return value ? "TRUE" : "FALSE"; };
  for (const RCPtr<TxPollItem>& item : items) {
    const std::string event = item->event ? Format("0x%lx", item->event->GetHandle()) : "NULL";
    Log(kLogAllItems, level, "   %s - timeout(%s)  elapsed(%s)  paused(%s)  event(%s)  disabled(%d)\n", item->Name(),
        item->TimeoutText(), item->ElapsedText(), truth(item->timer.Paused()), event, item->disableCount);
  }
}

}  // namespace runtime
