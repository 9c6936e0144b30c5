#include "tests/unit/fakeHelper.h"

#include <cstring>

#include "tests/support/machine.h"

namespace unit {

FakeHelper* FakeHelper::current = nullptr;

FakeHelper::FakeHelper() : window_(&Record) { current = this; }

FakeHelper::~FakeHelper() { current = nullptr; }

std::vector<HandOff> FakeHelper::Launches() const {
  std::vector<HandOff> launches;
  for (const HandOff& handOff : handOffs_) {
    if (handOff.tag == 501) launches.push_back(handOff);
  }
  return launches;
}

std::vector<std::string> FakeHelper::Traces() const {
  std::vector<std::string> traces;
  for (const HandOff& handOff : handOffs_) {
    if (handOff.tag == 502) traces.push_back(support::Narrow(handOff.units.substr(0, handOff.units.find(u'\0'))));
  }
  return traces;
}

platform::LRESULT FakeHelper::Record(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                     platform::LPARAM lParam) {
  if (message != platform::WM_COPYDATA || current == nullptr) {
    return platform::DefWindowProcW(window, message, wParam, lParam);
  }
  current->handOffs_.push_back(CopyOf(wParam, lParam));
  return 0;
}

HandOff CopyOf(platform::WPARAM wParam, platform::LPARAM lParam) {
  const auto& data = *reinterpret_cast<const platform::COPYDATASTRUCT*>(lParam);
  HandOff handOff{
      .tag = data.dwData, .sender = wParam, .size = data.cbData, .hasData = data.lpData != nullptr, .units = {}};
  if (handOff.hasData) {
    handOff.units.resize(data.cbData / sizeof(char16_t));
    std::memcpy(handOff.units.data(), data.lpData, handOff.units.size() * sizeof(char16_t));
  }
  return handOff;
}

}  // namespace unit
