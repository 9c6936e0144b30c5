#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "platform/error.h"
#include "platform/handles.h"
#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"

using namespace platform;
using namespace windowTests;

namespace {

struct Listing {
  HWND sought;
  int times = 0;
};

int TimesEnumerated(HWND window) {
  Listing listing{.sought = window};
  EnumWindows(
      [](HWND found, LPARAM parameter) {
        auto& seen = *reinterpret_cast<Listing*>(parameter);
        if (found == seen.sought) ++seen.times;
        return true;
      },
      reinterpret_cast<LPARAM>(&listing));
  return listing.times;
}

}  // namespace

TEST(WindowClass, IsRegisteredOncePerProcess) {
  const support::Machine machine;
  static char16_t run = u'a';  // A class stays for good, and the test may be repeated.
  const std::u16string name = std::u16string(u"LumenarTest_Once_") + run++;
  EXPECT_NE(RegisterTestClass(name.c_str()), 0);
  EXPECT_EQ(RegisterTestClass(name.c_str()), 0);
  EXPECT_EQ(GetLastError(), ERROR_CLASS_ALREADY_EXISTS);
  EXPECT_EQ(RegisterTestClass((u"LUMENARTEST_once_" + name.substr(17)).c_str()), 0);
  EXPECT_EQ(GetLastError(), ERROR_CLASS_ALREADY_EXISTS);
}

TEST(Window, OfAnUnknownClassIsNotCreated) {
  const support::Machine machine;
  EXPECT_FALSE(CreateTestWindow(u"LumenarTest_Unknown", HWND_MESSAGE));
  // Wine reports 1411, which Windows keeps for a class that is unregistered.
  EXPECT_THAT(GetLastError(), testing::AnyOf(ERROR_CANNOT_FIND_WND_CLASS, 1411U));
}

TEST(Window, IsSentCreateBeforeItIsReturned) {
  const support::Machine machine;
  int created = 0;
  const TestWindow window(u"LumenarTest_Window", [&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
    if (message == WM_CREATE) ++created;
    return std::nullopt;
  });
  EXPECT_EQ(created, 1);
}

TEST(Window, ThatItsProcedureRefusesIsNotThere) {
  const support::Machine machine;
  SetProcedure([](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
    return message == WM_CREATE ? std::optional<LRESULT>(-1) : std::nullopt;
  });
  RegisterTestClass(u"LumenarTest_Refused");
  EXPECT_FALSE(CreateTestWindow(u"LumenarTest_Refused", HWND_MESSAGE));
  EXPECT_FALSE(FindWindowW(u"LumenarTest_Refused", nullptr));
  SetProcedure({});
}

TEST(Window, IsSentDestroyAndThenGone) {
  const support::Machine machine;
  int destroyed = 0;
  RegisterTestClass(u"LumenarTest_Window");
  SetProcedure([&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
    if (message == WM_DESTROY) ++destroyed;
    return std::nullopt;
  });
  const HWND window = CreateTestWindow(u"LumenarTest_Window", HWND_MESSAGE);
  ASSERT_TRUE(window);
  EXPECT_TRUE(DestroyWindow(window));
  EXPECT_EQ(destroyed, 1);
  EXPECT_FALSE(FindWindowW(u"LumenarTest_Window", nullptr));
  EXPECT_EQ(SendMessageTimeoutW(window, WM_USER, 0, 0, SMTO_ABORTIFHUNG, 5000, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  SetProcedure({});
}

TEST(Window, OfAnotherProcessCannotBeDestroyed) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  EXPECT_FALSE(DestroyWindow(FindReceiver()));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(FindReceiver());
}

TEST(Window, OfAnotherThreadCannotBeDestroyed) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  std::thread([&] {
    EXPECT_FALSE(DestroyWindow(window.get()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  }).join();
  EXPECT_EQ(FindWindowW(u"LumenarTest_Window", nullptr), window.get());
}

TEST(Window, LetsMessagesThrough) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  EXPECT_TRUE(ChangeWindowMessageFilterEx(window.get(), WM_COPYDATA, MSGFLT_ALLOW, nullptr));
}

TEST(MessageOnlyWindow, IsFoundByTheNameOfItsClass) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  EXPECT_EQ(FindWindowW(u"LumenarTest_Window", nullptr), window.get());
  EXPECT_EQ(FindWindowW(u"LUMENARTEST_window", nullptr), window.get());
  EXPECT_FALSE(FindWindowW(u"LumenarTest_Windo", nullptr));
  EXPECT_FALSE(FindWindowW(u"LumenarTest_Window2", nullptr));
}

TEST(MessageOnlyWindow, OfAClassWithAnyNameIsFound) {
  const support::Machine machine;
  for (const std::u16string& name : {std::u16string(200, u'n'), std::u16string(u"a/../b\\c.d e"),
                                     u"\u00E4\U0001F600 %" + std::u16string(1, 0xD800)}) {
    const TestWindow window(name.c_str());
    EXPECT_EQ(FindWindowW(name.c_str(), nullptr), window.get());
    EXPECT_FALSE(FindWindowW((name + u"x").c_str(), nullptr));
  }
}

TEST(MessageOnlyWindow, IsFoundAcrossProcessesAndNotEnumerated) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  ASSERT_TRUE(window);
  EXPECT_EQ(FindReceiver(), window);
  EXPECT_EQ(TimesEnumerated(window), 0);
}

TEST(MessageOnlyWindow, TellsItsThreadAndProcess) {
  const support::Machine machine;
  const TestWindow own(u"LumenarTest_Window");
  DWORD process = 0;
  const DWORD thread = GetWindowThreadProcessId(own.get(), &process);
  EXPECT_EQ(process, GetCurrentProcessId());
  EXPECT_NE(thread, 0U);
  EXPECT_EQ(GetWindowThreadProcessId(own.get(), nullptr), thread);

  support::Process receiver = StartReceiver();
  EXPECT_NE(GetWindowThreadProcessId(FindReceiver(), &process), 0U);
  EXPECT_EQ(process, receiver.Id());
}

TEST(TopLevelWindow, IsFoundAndEnumeratedAcrossProcesses) {
  const support::Machine machine;
  support::Process receiver = StartReceiver(true);
  const HWND window = FindReceiver();
  ASSERT_TRUE(window);
  EXPECT_EQ(TimesEnumerated(window), 1);
}

TEST(FindWindow, FindsNothingWhereThereIsNone) {
  const support::Machine machine;
  EXPECT_FALSE(FindReceiver());
}

TEST(FindWindow, FindsNoWindowOfAThreadThatHasEnded) {
  const support::Machine machine;
  RegisterTestClass(u"LumenarTest_OfAThread");
  HWND window;
  std::thread([&] {
    window = CreateTestWindow(u"LumenarTest_OfAThread", HWND_MESSAGE);
    EXPECT_EQ(FindWindowW(u"LumenarTest_OfAThread", nullptr), window);
  }).join();
  EXPECT_TRUE(window);
  EXPECT_FALSE(FindWindowW(u"LumenarTest_OfAThread", nullptr));
  EXPECT_FALSE(PostMessageW(window, WM_USER, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(FindWindow, FindsNoWindowOfAProcessThatEnded) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  ASSERT_TRUE(window);
  EXPECT_TRUE(PostMessageW(window, kQuit, 7, 0));
  EXPECT_EQ(receiver.Wait(), 7);
  EXPECT_FALSE(FindReceiver());
}

TEST(FindWindow, FindsNoWindowOfAProcessThatWasKilled) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  ASSERT_TRUE(window);
  receiver.Kill();
  receiver.Wait();
  EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), 0U);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  EXPECT_FALSE(FindReceiver());
}

TEST(FindWindow, FindsTheOtherOfTwoWhenOneIsGone) {
  const support::Machine machine;
  support::Process first = StartReceiver();
  support::Process second = StartReceiver();
  DWORD process = 0;
  ASSERT_NE(GetWindowThreadProcessId(FindReceiver(), &process), 0U);
  support::Process& found = process == first.Id() ? first : second;
  support::Process& other = process == first.Id() ? second : first;
  EXPECT_EQ(process, found.Id());
  found.Kill();
  found.Wait();
  ASSERT_NE(GetWindowThreadProcessId(FindReceiver(), &process), 0U);
  EXPECT_EQ(process, other.Id());
}

TEST(Window, ThreadsFindSendAndPostWhileWindowsComeAndGo) {
  const support::Machine machine;
  constexpr int kRounds = 40;
  RegisterTestClass(u"LumenarTest_ComesAndGoes");
  std::atomic<int> making{2};
  std::atomic<int> handled{0};
  const auto makeAndServe = [&] {
    for (int round = 0; round < kRounds; ++round) {
      const TestWindow window(u"LumenarTest_ComesAndGoes", [&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
        if (message != WM_USER) return std::nullopt;
        ++handled;
        return 0;
      });
      PostMessageW(window.get(), WM_USER, 0, 0);
      PostQuitMessage(0);
      RunMessageLoop();
    }
    --making;
  };
  const auto findAndUse = [&] {
    while (making != 0) {
      const HWND window = FindWindowW(u"LumenarTest_ComesAndGoes", nullptr);
      if (!window) continue;
      PostMessageW(window, WM_USER, 1, 0);
      SendMessageTimeoutW(window, WM_USER, 2, 0, SMTO_ABORTIFHUNG, 5, nullptr);
      GetWindowThreadProcessId(window, nullptr);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) threads.emplace_back(makeAndServe);
  for (int i = 0; i < 2; ++i) threads.emplace_back(findAndUse);
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(handled, 2 * kRounds);
  EXPECT_FALSE(FindWindowW(u"LumenarTest_ComesAndGoes", nullptr));
}
