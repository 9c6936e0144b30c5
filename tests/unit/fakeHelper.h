// A resident helper that writes down what it is sent, and does nothing else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/unit/helperClass.h"

namespace unit {

// One WM_COPYDATA, as it arrived.
struct HandOff {
  std::uintptr_t tag = 0;
  platform::WPARAM sender = 0;
  platform::DWORD size = 0;  // Bytes.
  bool hasData = false;
  std::u16string units;  // The data; a last odd byte is left out.
};

// On the calling thread.
class FakeHelper {
 public:
  FakeHelper();
  FakeHelper(const FakeHelper&) = delete;
  FakeHelper& operator=(const FakeHelper&) = delete;
  ~FakeHelper();

  // All that came, in order; and all that came with the tag of a launch.
  [[nodiscard]] const std::vector<HandOff>& HandOffs() const noexcept { return handOffs_; }
  [[nodiscard]] std::vector<HandOff> Launches() const;
  // The texts of the log, up to their NUL, as UTF-8.
  [[nodiscard]] std::vector<std::string> Traces() const;
  void Forget() { handOffs_.clear(); }

 private:
  static platform::LRESULT Record(platform::HWND, platform::UINT message, platform::WPARAM wParam,
                                  platform::LPARAM lParam);
  static FakeHelper* current;

  std::vector<HandOff> handOffs_;
  HelperClassWindow window_;
};

// Copies what a WM_COPYDATA message carries.
[[nodiscard]] HandOff CopyOf(platform::WPARAM wParam, platform::LPARAM lParam);

}  // namespace unit
