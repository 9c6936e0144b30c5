// The settings watcher on a thread of its own, and what it orders.
#pragma once

#include <algorithm>
#include <atomic>
#include <thread>

#include "launcher/residentState.h"
#include "launcher/settingsWatcher.h"
#include "platform/raii.h"
#include "platform/window.h"
#include "tests/resident/residentTest.h"
#include "tests/unit/helperClass.h"

namespace resident {

inline constexpr platform::UINT kDrained = platform::WM_USER + 1;
inline constexpr platform::DWORD kUntilNextTry = 20;

class SettingsWatcher : public ResidentTest {
 protected:
  SettingsWatcher() : window_(&Record) {
    seen.clear();
    launcher::ShutdownEvent = shutdown_.get();
  }
  ~SettingsWatcher() override {
    if (thread_) Shutdown();
    launcher::ShutdownEvent = {};
  }

  static void MakeSettings() {
    MakeMachine(u"Agent");
    support::CreateKey(Hive::User, kUserKey);
  }

  static void DeleteOrigin() {
    platform::UniqueKey root;
    ASSERT_EQ(platform::RegOpenKeyExW(platform::HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, platform::KEY_WRITE, root.put()),
              0);
    ASSERT_EQ(platform::RegDeleteValueW(root.get(), u"Origin"), 0);
  }

  void Start() {
    thread_.reset(platform::CreateThread(nullptr, 0, &launcher::SettingsWatcherThread,
                                         reinterpret_cast<void*>(window_.get().value()), 0, nullptr));
    ASSERT_TRUE(thread_);
  }

  // Starts the watcher, and makes it give one order by changes on that side.
  void StartAndChange(Hive side) {
    Start();
    ChangeUntil(platform::WM_USER, side, side == Hive::User ? kUserKey : kRoot);
  }

  // Changes that key until that order is given. Nothing tells when the watcher has begun to watch, and a change ahead
  // of that is none for it; and Wine 8 forgets a change that comes between an order and the next watch, which Windows
  // keeps.
  void ChangeUntil(platform::UINT order, Hive side, const std::u16string& key) {
    std::atomic<bool> ordered = false;
    std::thread changes([&] {
      const platform::UniqueEvent never(platform::CreateEventW(nullptr, true, false, nullptr));
      while (!ordered) {
        support::SetNumber(side, key, u"Change", ++changes_);
        platform::WaitForSingleObject(never.get(), kUntilNextTry);
      }
    });
    Await(order);
    ordered = true;
    changes.join();
  }

  // Serves the window until it has been given that order.
  static void Await(platform::UINT order) {
    platform::MSG message{};
    while (std::ranges::find(seen, order) == seen.end() && platform::GetMessageW(&message, nullptr, 0, 0) > 0) {
      platform::DispatchMessageW(&message);
    }
  }

  // Waits for the watcher's end, and takes the orders that it has left behind.
  void Join() {
    ASSERT_EQ(platform::WaitForSingleObject(thread_.get(), platform::INFINITE), platform::WAIT_OBJECT_0);
    thread_.reset();
    platform::PostMessageW(window_.get(), kDrained, 0, 0);
    Await(kDrained);
    std::erase(seen, kDrained);
  }

  void Shutdown() {
    platform::SetEvent(shutdown_.get());
    Join();
  }

  static inline std::vector<platform::UINT> seen;
  std::uint32_t changes_ = 0;

 private:
  static platform::LRESULT Record(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                  platform::LPARAM lParam) {
    if (message != platform::WM_USER && message != platform::WM_DESTROY && message != kDrained) {
      return platform::DefWindowProcW(window, message, wParam, lParam);
    }
    seen.push_back(message);
    return 0;
  }

  unit::HelperClassWindow window_;
  platform::UniqueEvent shutdown_{platform::CreateEventW(nullptr, false, false, nullptr)};
  platform::UniqueThread thread_;
};

}  // namespace resident
