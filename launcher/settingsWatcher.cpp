#include "launcher/settingsWatcher.h"

#include "browser/extensionData.h"
#include "launcher/debugLog.h"
#include "launcher/residentState.h"
#include "platform/files.h"
#include "platform/raii.h"
#include "platform/window.h"
#include "settings/defaultHandlers.h"

namespace launcher {
namespace {

using debugLog::LogDirect;
using platform::DWORD;
using platform::HKEY;
using platform::HWND;
using platform::LSTATUS;
using platform::UniqueEvent;
using platform::UniqueKey;

constexpr platform::REGSAM kWatchAccess = platform::KEY_QUERY_VALUE | platform::KEY_NOTIFY | platform::KEY_WOW64_64KEY;
constexpr DWORD kFilter = platform::REG_NOTIFY_CHANGE_NAME | platform::REG_NOTIFY_CHANGE_LAST_SET;

enum class Next : std::uint8_t { GoOn, Withdraw, End };

// The two keys, the event of each, and the orders to the main thread.
class Watch {
 public:
  explicit Watch(HWND window) noexcept : window_(window) {}

  [[nodiscard]] bool Prepare();
  // Runs until shutdown, withdrawal or failure. True for the withdrawal.
  [[nodiscard]] bool UntilWithdrawn();
  // Clears the user's settings and the program's registrations, and ends the helper.
  void Withdraw();

 private:
  [[nodiscard]] bool CreateEvents();
  [[nodiscard]] bool OpenKeys();
  [[nodiscard]] LSTATUS OpenBelow(HKEY hive, const char16_t* name, UniqueKey& key);
  [[nodiscard]] bool ArmLocal();
  void ArmUser();
  [[nodiscard]] Next WaitForChange();
  [[nodiscard]] bool OriginIsThere() const;
  void RequestRefresh() const { platform::PostMessageW(window_, platform::WM_USER, 0, 0); }

  HWND window_;
  UniqueEvent localEvent_;
  UniqueEvent userEvent_;
  char16_t path_[platform::MAX_PATH] = {};  // Of the settings, below either hive.
  UniqueKey userKey_;                       // The parent of the redirection key.
  UniqueKey localKey_;                      // The redirection key itself. The two sides differ, and stay so.
};

bool Watch::Prepare() { return CreateEvents() && OpenKeys(); }

bool Watch::CreateEvents() {
  localEvent_.reset(platform::CreateEventW(nullptr, false, false, nullptr));
  if (!localEvent_) {
    const DWORD error = platform::GetLastError();
    LogDirect("Failed to create local setting update event, err=0x%08x\n", error);
    return false;
  }
  userEvent_.reset(platform::CreateEventW(nullptr, false, false, nullptr));
  if (!userEvent_) {
    const DWORD error = platform::GetLastError();
    LogDirect("Failed to create user setting update event, err=0x%08x\n", error);
    return false;
  }
  return true;
}

// Goes down by that name, and opens what is there. A path that cannot go down leads to another key, which is neither
// watched nor, in the end, deleted.
LSTATUS Watch::OpenBelow(HKEY hive, const char16_t* name, UniqueKey& key) {
  const platform::HRESULT appended = platform::PathCchAppend(path_, platform::MAX_PATH, name);
  if (appended < 0) return appended;
  return platform::RegOpenKeyExW(hive, path_, 0, kWatchAccess, key.put());
}

bool Watch::OpenKeys() {
  if (const LSTATUS error = OpenBelow(platform::HKEY_CURRENT_USER, u"Software\\Corvane\\Lumenar", userKey_);
      error != 0) {
    LogDirect("Failed to open root key under HKCU, err=0x%08x\n", error);
    return false;
  }
  if (const LSTATUS error = OpenBelow(platform::HKEY_LOCAL_MACHINE, u"URLRedirection", localKey_); error != 0) {
    LogDirect("Failed to open root key under HKLM, err=0x%08x\n", error);
    return false;
  }
  return true;
}

LSTATUS Arm(const UniqueKey& key, const UniqueEvent& event) {
  const LSTATUS error = platform::RegNotifyChangeKeyValue(key.get(), true, kFilter, event.get(), true);
  if (error != 0) LogDirect("RegNotifyChangeKeyValue failed for %p, err=0x%08x\n", key.get(), error);
  return error;
}

bool Watch::ArmLocal() { return Arm(localKey_, localEvent_) == 0; }

void Watch::ArmUser() { Arm(userKey_, userEvent_); }  // The machine's side can be watched without the user's.

bool Watch::OriginIsThere() const {
  return platform::RegQueryValueExW(localKey_.get(), u"Origin", nullptr, nullptr, nullptr, nullptr) == 0;
}

Next Watch::WaitForChange() {
  const platform::WaitableHandle handles[] = {ShutdownEvent, localEvent_.get(), userEvent_.get()};
  const DWORD result = platform::WaitForMultipleObjects(3, handles, false, platform::INFINITE);
  switch (result) {
    case 0: LogDirect("The helper thread exists."); return Next::End;
    case 1:
      if (!OriginIsThere()) return Next::Withdraw;
      RequestRefresh();
      return Next::GoOn;
    case 2: RequestRefresh(); return Next::GoOn;
    case platform::WAIT_FAILED: {
      const DWORD error = platform::GetLastError();
      LogDirect("WaitForMultipleObjects failed, err=0x%08x\n", error);
      return Next::End;
    }
    default: return Next::GoOn;
  }
}

bool Watch::UntilWithdrawn() {
  while (ArmLocal()) {
    ArmUser();
    if (const Next next = WaitForChange(); next != Next::GoOn) return next == Next::Withdraw;
  }
  return false;
}

void Watch::Withdraw() {
  if (const LSTATUS error = platform::RegDeleteTreeW(platform::HKEY_CURRENT_USER, path_); error != 0) {
    LogDirect("Failed to delete url redirection settings, err=0x%08x\n", error);
  }
  browser::RemoveAllExtensionData();
  settings::SetCustomProtocolKey(false);
  platform::PostMessageW(window_, platform::WM_DESTROY, 0, 0);
}

}  // namespace

DWORD SettingsWatcherThread(void* window) {
  Watch watch{HWND(reinterpret_cast<std::uintptr_t>(window))};
  if (watch.Prepare() && watch.UntilWithdrawn()) watch.Withdraw();
  return 0;
}

}  // namespace launcher
