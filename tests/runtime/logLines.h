// The lines that a test's code logs, each as "W TxMutex::Acquire(): text": the level's letter, the caller, the text.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/logCalls.h"

namespace runtimeTests {

// Receives every call while it exists, of all threads.
class LogLines {
 public:
  LogLines() : receiver_(std::make_shared<Receiver>()) { runtime::SetLogReceiver(receiver_); }
  ~LogLines() {
    runtime::SetLogReceiver(nullptr);
    runtime::gLogLevel = 0;
  }
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;

  [[nodiscard]] std::vector<std::string> All() const {
    const std::lock_guard guard(receiver_->lock);
    return receiver_->lines;
  }
  // Those so far that begin so.
  [[nodiscard]] std::vector<std::string> Of(const std::string& beginning) const {
    std::vector<std::string> lines = All();
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(beginning); });
    return lines;
  }
  // Returns the first line that begins so, as soon as there is one.
  std::string Await(const std::string& beginning) const;

 private:
  struct Receiver : runtime::LogReceiver {
    void Receive(const runtime::LogCall& call) override {
      std::string line =
          std::string(1, runtime::LogLevelLetter(call.level)) + " " + call.functionName + ": " + call.Text();
      {
        const std::lock_guard guard(lock);
        lines.push_back(std::move(line));
      }
      changed.notify_all();
    }
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::string> lines;
  };
  const std::shared_ptr<Receiver> receiver_;
};

inline std::string LogLines::Await(const std::string& beginning) const {
  std::unique_lock guard(receiver_->lock);
  std::string found;
  receiver_->changed.wait(guard, [&] {
    for (const std::string& line : receiver_->lines) {
      if (line.starts_with(beginning)) found = line;
      if (!found.empty()) return true;
    }
    return false;
  });
  return found;
}

}  // namespace runtimeTests
