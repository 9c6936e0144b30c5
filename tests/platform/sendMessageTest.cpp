#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/error.h"
#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"

using namespace platform;
using namespace windowTests;

namespace {

// For sends that nothing should hold up: a bound to fail by, never one that is reached.
constexpr UINT kLong = 120'000;

LRESULT SendData(HWND window, std::uintptr_t tag, void* bytes, std::size_t size, std::uintptr_t* result = nullptr) {
  COPYDATASTRUCT data{.dwData = tag, .cbData = static_cast<DWORD>(size), .lpData = bytes};
  return SendMessageTimeoutW(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data), SMTO_ABORTIFHUNG, kLong, result);
}

LRESULT Send(HWND window, UINT message, WPARAM wParam, std::uintptr_t* result = nullptr) {
  return SendMessageTimeoutW(window, message, wParam, 0, SMTO_ABORTIFHUNG, kLong, result);
}

// Holds a receiver in its window procedure, from a thread of its own.
class Holder {
 public:
  Holder(support::Process& receiver, HWND window) : receiver_(receiver) {
    thread_ = std::thread([this, window] { result_ = Send(window, kHold, 0); });
    EXPECT_EQ(receiver.Hear(), "holding");
  }
  LRESULT Release() {
    receiver_.Say("go on");
    return Result();
  }
  LRESULT Result() {
    thread_.join();
    return result_;
  }

 private:
  support::Process& receiver_;
  std::thread thread_;
  LRESULT result_ = -1;
};

}  // namespace

CHILD_BODY(SendsFifty) {
  support::Say("ready");
  (void)support::Hear();
  const HWND window = FindWindowW(u"LumenarTest_Serial", nullptr);
  for (int i = 0; i < 50; ++i) {
    if (Send(window, WM_USER, 0) == 0) return 1;
  }
  return 0;
}

CHILD_BODY(SendsAMark) {
  support::Say("sending");
  return Send(FindReceiver(), kMark, 5) == 0 ? 1 : 0;
}

TEST(CopyData, ArrivesByteForByte) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  for (const std::size_t size : {1U, 2U, 3U, 100U, 4097U, 16384U, 16385U, 65535U, 65536U, 1048576U, 1048577U}) {
    std::vector<std::uint8_t> bytes = Pattern(size);
    std::uintptr_t result = 0;
    EXPECT_NE(SendData(window, size + 1, bytes.data(), size, &result), 0);
    EXPECT_EQ(result, size);
    EXPECT_EQ(receiver.Hear(), "data " + std::to_string(size + 1) + " " + std::to_string(size) + " pattern");
  }
}

TEST(CopyData, OfNoBytesIsStillData) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  std::uint8_t byte = 0;
  EXPECT_NE(SendData(FindReceiver(), 502, &byte, 0), 0);
  EXPECT_EQ(receiver.Hear(), "data 502 0 pattern");
}

TEST(CopyData, MayBeNull) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  EXPECT_NE(SendData(FindReceiver(), 503, nullptr, 0), 0);
  EXPECT_EQ(receiver.Hear(), "data 503 0 null");
}

TEST(CopyData, ThatIsNullHasNoSize) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  EXPECT_NE(SendData(FindReceiver(), ~std::uintptr_t{0}, nullptr, 10), 0);
  EXPECT_EQ(receiver.Hear(), "data 18446744073709551615 0 null");
}

TEST(SentMessage, BringsBackTheResult) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  std::uintptr_t result = 0;
  EXPECT_NE(Send(FindReceiver(), kMark, 7, &result), 0);
  EXPECT_EQ(result, 1007U);
  EXPECT_NE(Send(FindReceiver(), kMark, static_cast<WPARAM>(-1001), &result), 0);
  EXPECT_EQ(result, ~std::uintptr_t{0});
}

TEST(SentMessage, ToTheOwnThreadIsACall) {
  const support::Machine machine;
  LPARAM seen = 0;
  const TestWindow window(u"LumenarTest_Window", [&](UINT message, WPARAM, LPARAM lParam) -> std::optional<LRESULT> {
    if (message != WM_COPYDATA) return std::nullopt;
    seen = lParam;
    return 5;
  });
  COPYDATASTRUCT data{.dwData = 1, .cbData = 0, .lpData = nullptr};
  std::uintptr_t result = 0;
  EXPECT_NE(SendMessageTimeoutW(window.get(), WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data), SMTO_ABORTIFHUNG, 500,
                                &result),
            0);
  EXPECT_EQ(seen, reinterpret_cast<LPARAM>(&data));
  EXPECT_EQ(result, 5U);
}

TEST(SentMessage, ToAnotherThreadRunsOnThatThread) {
  const support::Machine machine;
  const std::thread::id owner = std::this_thread::get_id();
  std::thread::id ranOn;
  support::Signal serving;
  const TestWindow window(u"LumenarTest_Window", [&](UINT message, WPARAM wParam, LPARAM) -> std::optional<LRESULT> {
    if (message == WM_USER + 1) PostQuitMessage(0);
    if (message == WM_USER + 2) serving.Give();
    if (message != WM_USER) return std::nullopt;
    ranOn = std::this_thread::get_id();
    return static_cast<LRESULT>(wParam * 2);
  });
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER + 2, 0, 0));
  std::thread sender([&] {
    serving.Await();  // A thread that has not asked for messages for 5 s, as this one may have not yet, counts as hung.
    std::uintptr_t result = 0;
    EXPECT_NE(Send(window.get(), WM_USER, 21, &result), 0);
    EXPECT_EQ(result, 42U);
    EXPECT_TRUE(PostMessageW(window.get(), WM_USER + 1, 0, 0));
  });
  RunMessageLoop();
  sender.join();
  EXPECT_EQ(ranOn, owner);
}

TEST(SentMessage, IsServedByAThreadThatWaitsForAnAnswerItself) {
  const support::Machine machine;
  std::atomic<std::uintptr_t> peer{0};
  support::Signal peerReady;
  int asked = 0;
  const TestWindow window(u"LumenarTest_First", [&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
    if (message != WM_USER) return std::nullopt;
    ++asked;
    return 11;
  });
  std::thread other([&] {
    const TestWindow second(u"LumenarTest_Second", [&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
      if (message == WM_USER + 1) PostQuitMessage(0);
      if (message != WM_USER) return std::nullopt;
      std::uintptr_t result = 0;
      EXPECT_NE(Send(window.get(), WM_USER, 0, &result), 0);
      return static_cast<LRESULT>(result + 1);
    });
    peer = second.get().value();
    peerReady.Give();
    RunMessageLoop();
  });
  peerReady.Await();
  std::uintptr_t result = 0;
  EXPECT_NE(Send(HWND(peer.load()), WM_USER, 0, &result), 0);
  EXPECT_EQ(result, 12U);
  EXPECT_EQ(asked, 1);
  EXPECT_TRUE(PostMessageW(HWND(peer.load()), WM_USER + 1, 0, 0));
  other.join();
}

TEST(SentMessage, ToABusyWindowTimesOutAndIsWithdrawn) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  Holder holder(receiver, window);
  EXPECT_EQ(SendMessageTimeoutW(window, kMark, 1, 0, SMTO_ABORTIFHUNG, 50, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
  EXPECT_NE(holder.Release(), 0);
  EXPECT_NE(Send(window, kMark, 2), 0);
  EXPECT_EQ(receiver.Hear(), "mark 2");
}

TEST(SentMessage, TimesOutWhileItIsHandled) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  EXPECT_EQ(SendMessageTimeoutW(window, kHold, 0, 0, SMTO_ABORTIFHUNG, 50, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
  // Only a message that was taken up in time arrived; either way the receiver goes on.
  receiver.Say("go on");
  EXPECT_NE(Send(window, kMark, 2), 0);
}

TEST(SentMessage, ToNoWindowFails) {
  const support::Machine machine;
  for (const HWND window : {HWND(), HWND(0x123456)}) {
    EXPECT_EQ(Send(window, WM_USER, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  }
}

TEST(SentMessage, FailsWhenTheReceiverEndsInstead) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  EXPECT_EQ(Send(FindReceiver(), kVanish, 0), 0);
  EXPECT_EQ(receiver.Wait(), 0);
}

// The sender would wait longer than the test may last, were it not told.
TEST(SentMessage, FailsWhenTheReceiverIsKilled) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  Holder holder(receiver, FindReceiver());
  receiver.Kill();
  EXPECT_EQ(holder.Result(), 0);
}

TEST(SentMessage, OfASenderThatIsKilledDoesNotHarmTheReceiver) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  Holder holder(receiver, window);
  support::Process sender = support::StartChild("SendsAMark");
  ASSERT_EQ(sender.Hear(), "sending");
  sender.Kill();
  sender.Wait();
  EXPECT_NE(holder.Release(), 0);
  std::uintptr_t result = 0;
  EXPECT_NE(Send(window, kMark, 2, &result), 0);
  EXPECT_EQ(result, 1002U);
}

TEST(SentMessage, OfManyProcessesAreHandledOneByOne) {
  const support::Machine machine;
  int inside = 0;
  int handled = 0;
  const TestWindow window(u"LumenarTest_Serial", [&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
    if (message != WM_USER) return std::nullopt;
    EXPECT_EQ(++inside, 1);
    --inside;
    if (++handled == 8 * 50) PostQuitMessage(0);
    return 0;
  });
  std::vector<support::Process> senders;
  for (int i = 0; i < 8; ++i) senders.push_back(support::StartChild("SendsFifty"));
  for (support::Process& sender : senders) ASSERT_EQ(sender.Hear(), "ready");
  for (support::Process& sender : senders) sender.Say("go");
  RunMessageLoop();
  for (support::Process& sender : senders) EXPECT_EQ(sender.Wait(), 0);
  EXPECT_EQ(handled, 8 * 50);
}
