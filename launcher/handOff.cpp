#include "launcher/handOff.h"

#include "platform/window.h"

namespace handOff {
namespace {
constexpr platform::UINT kPatienceMilliseconds = 500;
}

Outcome SendToHelper(Tag tag, void* data, platform::DWORD size) noexcept {
  const platform::HWND helper = platform::FindWindowW(kHelperWindowClass, nullptr);
  if (!helper) return Outcome::NoHelper;
  platform::COPYDATASTRUCT message{.dwData = tag, .cbData = size, .lpData = data};
  const platform::LRESULT answered =
      platform::SendMessageTimeoutW(helper, platform::WM_COPYDATA, 0, reinterpret_cast<platform::LPARAM>(&message),
                                    platform::SMTO_ABORTIFHUNG, kPatienceMilliseconds, nullptr);
  return answered == 0 ? Outcome::Failed : Outcome::Sent;
}

}  // namespace handOff
