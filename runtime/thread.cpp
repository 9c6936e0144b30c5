#include "runtime/thread.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <system_error>

#include "platform/com.h"
#include "runtime/logCalls.h"
#include "runtime/processUtils.h"
#include "runtime/textFormat.h"

namespace runtime {
namespace {

[[noreturn]] void Throw(std::errc error) { throw std::system_error(std::make_error_code(error)); }

platform::DWORD Enter(void* parameter) {
  const auto data = RCPtr<TxThreadData>::Adopt(static_cast<TxThreadData*>(parameter));
  data->threadId = TxThread::GetCurrentThreadId();
  data->wakeEvent.Set();
  data->Run();
  return 0;
}

// The thread has a reference to its record from the start.
std::unique_ptr<TxThreadData::Record> CreateThread(TxThreadData& data) {
  auto record = std::make_unique<TxThreadData::Record>();
  data.AddRef();
  record->handle.reset(platform::CreateThread(nullptr, 0, &Enter, &data, 0, &record->id));
  if (!record->handle) {
    data.Release();
    Throw(std::errc::resource_unavailable_try_again);
  }
  return record;
}

// 0 when the worker has come to its end, 1 when its thread is gone without; else as TxEvent::WaitAny.
std::int32_t AwaitEnd(const TxEvent& exited, const TxEvent& ended, std::uint32_t timeoutMs) {
  std::vector<const TxEvent*> events{&exited};
  if (ended.IsValid()) events.push_back(&ended);
  return TxEvent::WaitAny(events, false, timeoutMs, false, false);
}

TxEvent EventOf(const TxThreadData::Record& record) {
  platform::ThreadHandle duplicate;
  const bool done =
      platform::DuplicateHandle(platform::GetCurrentProcess(), record.handle.get(), platform::GetCurrentProcess(),
                                &duplicate, 0, false, platform::DUPLICATE_SAME_ACCESS);
  return done ? TxEvent(duplicate, true) : TxEvent();
}

}  // namespace

void TxThreadData::Run() {
  constexpr const char* kRun = "TxThreadData::Run()";
  const std::string program(BaseName(ProcessUtils::GetModulePath(true)));
  const std::string text = Format("%s!%s", program, name);
  const bool entered = platform::CoInitializeEx(nullptr, platform::COINIT_MULTITHREADED) >= 0;
  ProcessUtils::SetThreadName(ProcessUtils::kCallersThread, text.c_str());
  Log(kRun, 3, "Thread %s started", name);
  const char* reason = nullptr;
  {
    const std::lock_guard lock(mutex);
    reason = CallAndWait();
    threadId = 0;
    exitedEvent.Set();
  }
  Log(kRun, 3, "Thread %s %s", name, reason);
  if (entered) platform::CoUninitialize();
}

const char* TxThreadData::CallAndWait() {
  while (true) {
    bool again = false;
    {
      const Unlocked unlocked(mutex);
      again = callback(userData);
    }
    if (deleted || !again) {
      stopEvent.Set();
      return deleted ? "was deleted" : "exited by callback";
    }
    const std::int32_t result = WaitForNextCall();
    if (result == 0 || result == kWaitError) return "exited";
  }
}

std::int32_t TxThreadData::WaitForNextCall() {
  // So nothing that a call has put there shortens the wait: it is meant.
  nextWaitMs = -1;
  const std::uint32_t timeout =
      std::min(static_cast<std::uint32_t>(intervalMs), static_cast<std::uint32_t>(nextWaitMs));
  const bool forMessages = messageWait;
  const Unlocked unlocked(mutex);
  return TxEvent::WaitAny({&stopEvent, &wakeEvent}, false, timeout, forMessages, false);
}

void TxThreadData::Join() {
  if (!thread->Joinable()) {
    Log("TxThreadData::Join()", 2, "Thread %s(0x%04X) is not joinable", name, thread->id);
    std::terminate();
  }
  if (thread->id == TxThread::GetCurrentThreadId()) Throw(std::errc::resource_deadlock_would_occur);
  if (platform::WaitForSingleObject(thread->handle.get(), platform::INFINITE) != platform::WAIT_OBJECT_0) {
    Throw(std::errc::no_such_process);
  }
}

void TxThreadData::Detach() {
  if (!thread->Joinable()) {
    Log("TxThreadData::Detach()", 2, "Thread %s(0x%04X) is not joinable", name, thread->id);
    return;
  }
  thread->id = 0;
  const platform::ThreadHandle detached = thread->handle.release();
  const bool closed = platform::CloseHandle(detached);  // closes by hand: the caller hears of a failure
  if (!closed) Throw(std::errc::invalid_argument);
}

TxThread::TxThread(std::string name) : data(new TxThreadData(std::move(name), this)) {}

TxThread::~TxThread() { MarkDeleted(); }

bool TxThread::Start(ThreadCallback callback, void* userData, std::int32_t intervalMs, bool messageWait) {
  const std::lock_guard lock(data->mutex);
  if (callback == nullptr || data->thread) return false;
  if (!data->exitedEvent.Reset() || !data->stopEvent.Reset() || !data->wakeEvent.Reset()) return false;
  if (data->threadHandleEvent.IsValid()) data->threadHandleEvent = TxEvent();
  data->callback = callback;
  data->userData = userData;
  data->intervalMs = intervalMs;
  data->messageWait = messageWait;
  data->thread = CreateThread(*data);
  data->threadHandleEvent = EventOf(*data->thread);
  data->wakeEvent.Wait(TxEvent::kNoLimit);
  return true;
}

bool TxThread::Stop(std::uint32_t timeoutMs) {
  data->stopEvent.Set();
  return WaitForStop(timeoutMs);
}

bool TxThread::WaitForStop(std::uint32_t timeoutMs) {
  const std::lock_guard lock(data->mutex);
  if (!data->thread) return true;
  if (IsCurrentThread()) return false;
  {
    const TxEvent ended = data->threadHandleEvent;
    const Unlocked unlocked(data->mutex);
    if (AwaitEnd(data->exitedEvent, ended, timeoutMs) < 0) return false;
  }
  // Somebody else was waiting too, and a thread that is there may have been started since.
  if (!data->thread) return true;
  const std::int32_t result = AwaitEnd(data->exitedEvent, data->threadHandleEvent, 0);
  if (result == kWaitTimedOut) return true;
  if (result == kWaitError) return false;
  if (result == 1) {
    Log("TxThread::WaitForStop()", 4, "Thread %s(0x%04X) exited unexpectedly", data->name, data->thread->id);
    data->threadId = 0;
    data->stopEvent.Set();
    data->exitedEvent.Set();
  }
  data->Join();
  data->thread.reset();
  return true;
}

bool TxThread::IsCurrentThread() const noexcept { return data->threadId == GetCurrentThreadId(); }

TxEvent TxThread::GetStopEvent() const { return data->stopEvent; }

TxEvent TxThread::GetThreadEvent() const {
  const std::lock_guard lock(data->mutex);
  return data->threadHandleEvent;
}

std::uint32_t TxThread::GetCurrentThreadId() noexcept {
  thread_local const std::uint32_t id = platform::GetCurrentThreadId();
  return id;
}

void TxThread::MarkDeleted() {
  const std::lock_guard lock(data->mutex);
  if (data->thread) {
    Log("TxThread::MarkDeleted()", 4, "Setting deleted flag for thread %s(0x%04X)", data->name, data->thread->id);
    data->deleted = true;
    data->Detach();
  }
  data->owner = nullptr;
}

}  // namespace runtime
