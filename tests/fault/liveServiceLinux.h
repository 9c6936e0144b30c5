// The service of the session's commands, as a process of its own whose calls do not fail.
#pragma once

#include <map>
#include <string>
#include <thread>

#include "tests/support/process.h"

namespace fault {

class LiveService {
 public:
  // Returns once it listens.
  LiveService();
  LiveService(const LiveService&) = delete;
  LiveService& operator=(const LiveService&) = delete;
  ~LiveService();

  // Waits until it has let go of every client, and has ended. How often each text was posted.
  [[nodiscard]] std::map<std::string, int> End();

 private:
  void Listen();

  support::Process process_;
  std::map<std::string, int> posted_;  // The thread's, until it has ended.
  std::thread listener_;               // So that the service never waits for somebody to read what it prints.
};

}  // namespace fault
