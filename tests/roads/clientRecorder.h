// Takes the reports of the recording clients that the resident helper starts; see standInRecorder.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/window.h"

namespace roads {

// One at a time. It belongs to the machine that is there when it is made.
class ClientRecorder {
 public:
  ClientRecorder();
  ~ClientRecorder();
  ClientRecorder(const ClientRecorder&) = delete;
  ClientRecorder& operator=(const ClientRecorder&) = delete;

  // The command line of the next client, in the order of their reports. Waits for it and, unless clients are held, for
  // its end; empty, and the test fails, when none comes.
  [[nodiscard]] std::u16string Next();

  // From now on clients that report get no answer, and so do not end, until they are released.
  void Hold();
  void Release();

 private:
  struct Report {
    std::uint32_t process;
    std::u16string line;
  };

  static platform::LRESULT WindowProcedure(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                           platform::LPARAM lParam);
  void Serve();
  void Take(const platform::COPYDATASTRUCT& message);

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<Report> reports_;
  std::vector<std::uint32_t> processes_;  // Of all clients that have reported.
  bool held_ = false;
  bool serving_ = false;
  platform::HWND window_;
  std::thread thread_;
};

}  // namespace roads
