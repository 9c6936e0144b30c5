#include "runtime/loggerManager.h"

#include <memory>
#include <mutex>

namespace runtime {
namespace {

std::atomic<LoggerManager*> theManager = nullptr;

struct ToDefaultLogger : LogReceiver {
  void Receive(const LogCall& call) override { LoggerManager::Instance().DefaultLogger()->Send(call); }
};

}  // namespace

const TxMutex& GlobalLogMutex() {
  static const auto& mutex = *new TxMutex;  // Never destroyed: threads may log while the process ends.
  return mutex;
}

LoggerManager::LoggerManager() : messageManager(new LogMessageManager), pollThread(new TxPollThread("Logger")) {
  defaultLogger = new Logger(messageManager);
  pollThread->SetMutex(const_cast<TxMutex*>(&GlobalLogMutex()));
}

LoggerManager& LoggerManager::Instance() {
  static LoggerManager& manager = *[] {
    auto* const made = new LoggerManager;
    theManager = made;
    return made;
  }();
  return manager;
}

bool LoggerManager::AddsPollItems() noexcept {
  const LoggerManager* const manager = theManager;
  return manager != nullptr && manager->defaultLogger && manager->noPollItems == 0;
}

RCPtr<Logger> LoggerManager::NamedLogger(const std::string& name) {
  const std::lock_guard lock(GlobalLogMutex());
  RCPtr<Logger>& logger = loggers[name];
  if (!logger) logger = new Logger(messageManager);
  return logger;
}

RCPtr<Logger> GetDefaultLogger() { return LoggerManager::Instance().DefaultLogger(); }

RCPtr<TxPollThread> GetLogPollThread() {
  RCPtr<TxPollThread> thread = LoggerManager::Instance().PollThread();
  thread->StartScheduler();
  return thread;
}

void RouteLogCalls() { SetLogReceiver(std::make_shared<ToDefaultLogger>()); }

}  // namespace runtime
