// What the tests of the thread pool share.
#pragma once

#include <functional>

#include "platform/raii.h"
#include "platform/threadPool.h"
#include "tests/support/lastingEvent.h"

namespace pool {

using namespace platform;

using Signal = support::LastingEvent;

// A pool of one thread, so that a callback which blocks keeps all behind it queued.
class OneThread {
 public:
  OneThread() {
    InitializeThreadpoolEnvironment(&environment_);
    SetThreadpoolThreadMaximum(pool_.get(), 1);
    SetThreadpoolCallbackPool(&environment_, pool_.get());
  }
  [[nodiscard]] TP_CALLBACK_ENVIRON* Environment() { return &environment_; }

 private:
  UniquePool pool_{CreateThreadpool(nullptr)};
  TP_CALLBACK_ENVIRON environment_{};
};

// The context of every object that a test makes: what its callbacks do.
using Function = std::function<void(PTP_CALLBACK_INSTANCE)>;

inline UniqueWork NewWork(Function& function, const TP_CALLBACK_ENVIRON* environment = nullptr) {
  return UniqueWork(CreateThreadpoolWork(
      [](PTP_CALLBACK_INSTANCE instance, void* context, PTP_WORK) { (*static_cast<Function*>(context))(instance); },
      &function, environment));
}

inline UniqueWait NewWait(Function& function, const TP_CALLBACK_ENVIRON* environment = nullptr) {
  return UniqueWait(CreateThreadpoolWait([](PTP_CALLBACK_INSTANCE instance, void* context, PTP_WAIT,
                                            TP_WAIT_RESULT) { (*static_cast<Function*>(context))(instance); },
                                         &function, environment));
}

inline UniqueTimer NewTimer(Function& function, const TP_CALLBACK_ENVIRON* environment = nullptr) {
  return UniqueTimer(CreateThreadpoolTimer(
      [](PTP_CALLBACK_INSTANCE instance, void* context, PTP_TIMER) { (*static_cast<Function*>(context))(instance); },
      &function, environment));
}

// Occupies the one thread of a pool until it is opened; at its end as well.
class Gate {
 public:
  explicit Gate(OneThread& pool) : work_(NewWork(function_, pool.Environment())) {
    SubmitThreadpoolWork(work_.get());
    entered_.Await();
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() {
    Open();
    WaitForThreadpoolWorkCallbacks(work_.get(), false);
  }
  void Open() { opened_.Set(); }

 private:
  Signal entered_;
  Signal opened_;
  Function function_ = [this](PTP_CALLBACK_INSTANCE) {
    entered_.Set();
    opened_.Await();
  };
  UniqueWork work_;
};

}  // namespace pool
