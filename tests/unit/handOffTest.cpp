#include "launcher/handOff.h"

#include <string>

#include "tests/unit/frontEndTest.h"
#include "tests/unit/helperClass.h"

namespace unit {
namespace {

using handOff::Outcome;
using handOff::SendToHelper;

class HandOffs : public FrontEndTest {};

TEST_F(HandOffs, WithoutAHelperNothingIsSent) {
  EXPECT_EQ(SendToHelper(handOff::HELPER_REFRESH_CONFIG, nullptr, 0), Outcome::NoHelper);
}

TEST_F(HandOffs, ToAWindowOfTheSameThreadArriveWithinTheCall) {
  const FakeHelper helper;
  std::u16string text = u"text";
  EXPECT_EQ(SendToHelper(handOff::HELPER_LAUNCH_OR_POST, text.data(), 10), Outcome::Sent);
  ASSERT_EQ(helper.HandOffs().size(), 1u);
  const HandOff& received = helper.HandOffs()[0];
  EXPECT_EQ(received.tag, 501u);
  EXPECT_EQ(received.sender, 0u);
  EXPECT_EQ(received.size, 10u);
  EXPECT_EQ(received.units, std::u16string(u"text") + u'\0');
}

TEST_F(HandOffs, WithoutDataCarryNone) {
  const FakeHelper helper;
  EXPECT_EQ(SendToHelper(handOff::HELPER_REFRESH_CONFIG, nullptr, 0), Outcome::Sent);
  ASSERT_EQ(helper.HandOffs().size(), 1u);
  EXPECT_EQ(helper.HandOffs()[0].tag, 503u);
  EXPECT_EQ(helper.HandOffs()[0].size, 0u);
  EXPECT_FALSE(helper.HandOffs()[0].hasData);
}

HandOff receivedByThread;

platform::LRESULT ReceiveOnThread(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                  platform::LPARAM lParam) {
  if (message != platform::WM_COPYDATA) return platform::DefWindowProcW(window, message, wParam, lParam);
  receivedByThread = CopyOf(wParam, lParam);
  return 0;
}

// A machine that is busy may let the sender's half second pass; then the message is sent anew.
Outcome SendPatiently(handOff::Tag tag, void* data, platform::DWORD size) {
  Outcome outcome = Outcome::Failed;
  for (int i = 0; i < 100 && outcome == Outcome::Failed; ++i) outcome = SendToHelper(tag, data, size);
  return outcome;
}

TEST_F(HandOffs, ToAWindowOfAnotherThreadArriveAsACopy) {
  std::u16string text(32768, u'x');
  {
    const HelperClassThread helper(&ReceiveOnThread);
    EXPECT_EQ(SendPatiently(handOff::HELPER_LOG_TEXT, text.data(), 65536), Outcome::Sent);
  }
  EXPECT_EQ(receivedByThread.tag, 502u);
  EXPECT_EQ(receivedByThread.sender, 0u);
  EXPECT_EQ(receivedByThread.size, 65536u);
  EXPECT_EQ(receivedByThread.units, text);
}

TEST_F(HandOffs, ToAWindowThatDoesNotAnswerFail) {
  const HelperClassThread helper(&AnswerLate);
  EXPECT_EQ(SendToHelper(handOff::HELPER_REFRESH_CONFIG, nullptr, 0), Outcome::Failed);
  mayAnswer.Give();
}

}  // namespace
}  // namespace unit
