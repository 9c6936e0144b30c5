#include "tests/unit/heardKeys.h"

namespace unit {
namespace {

constexpr platform::WORD kLastKey = 0x87;  // F24, which means nothing to any window.
constexpr platform::UINT kFirstKeyMessage = 0x100;
constexpr platform::UINT kLastKeyMessage = 0x109;

void PressLastKey(platform::DWORD flags) {
  platform::INPUT input{};
  input.type = platform::INPUT_KEYBOARD;
  input.ki.wVk = kLastKey;
  input.ki.dwFlags = flags;
  platform::SendInput(1, &input, sizeof input);
}

bool IsKey(const platform::MSG& message) {
  return message.message >= kFirstKeyMessage && message.message <= kLastKeyMessage;
}

}  // namespace

// Keys are not dispatched: what the system would make of Alt is of no interest here.
std::vector<HeardKey> HeardKeys() {
  PressLastKey(0);
  PressLastKey(platform::KEYEVENTF_KEYUP);
  std::vector<HeardKey> keys;
  int lastKeys = 0;
  platform::MSG message{};
  while (lastKeys < 2 && platform::GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (!IsKey(message)) {
      platform::DispatchMessageW(&message);
    } else if (message.wParam == kLastKey) {
      ++lastKeys;
    } else {
      keys.push_back({.message = message.message, .key = message.wParam, .window = message.hwnd});
    }
  }
  return keys;
}

}  // namespace unit
