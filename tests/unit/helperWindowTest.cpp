#include "launcher/helperWindow.h"

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "launcher/handOff.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using launcher::HelperWindowProc;
using platform::COPYDATASTRUCT;
using platform::DWORD;
using platform::HWND;
using platform::MSG;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr std::uintptr_t kTags[] = {0, 501, 502, 503, 504, 0xFFFFFFFFFFFFFFFF};

// Exactly these bytes in a block of their own, so that the sanitizers see a read behind them.
class Block {
 public:
  explicit Block(std::u16string_view units) : Block(units, units.size() * sizeof(char16_t)) {}
  Block(std::u16string_view units, std::size_t size) : size_(size), bytes_(new std::uint8_t[size]) {
    std::memcpy(bytes_.get(), units.data(), size);
  }
  [[nodiscard]] platform::LRESULT SendAs(std::uintptr_t tag, HWND window = {}) const {
    return Send(tag, static_cast<DWORD>(size_), bytes_.get(), window);
  }
  static platform::LRESULT Send(std::uintptr_t tag, DWORD size, void* data, HWND window = {}) {
    COPYDATASTRUCT message{.dwData = tag, .cbData = size, .lpData = data};
    return HelperWindowProc(window, platform::WM_COPYDATA, 0, reinterpret_cast<platform::LPARAM>(&message));
  }

 private:
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> bytes_;
};

class HelperWindow : public FrontEndTest {
 protected:
  HelperWindow() { SetLogging(false); }
  static void StoreOrigin(const char16_t* origin) { support::SetText(Hive::Machine, kRoot, u"Origin", origin); }
};

TEST_F(HelperWindow, ALogTextIsWrittenUpToItsNul) {
  using namespace std::string_view_literals;
  EXPECT_EQ(Block(u"text\n\0more"sv).SendAs(502), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("text\n"));
}

TEST_F(HelperWindow, ALogTextIsReadUpToItsNulHoweverMuchIsSaidToFollow) {
  char16_t text[] = u"text\n";
  EXPECT_EQ(Block::Send(502, 0xFFFFFFFF, text), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("text\n"));
}

TEST_F(HelperWindow, ALogTextIsWrittenWithLoggingOff) {
  using namespace std::string_view_literals;
  EXPECT_EQ(Block(u"text\n\0"sv).SendAs(502), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("text\n"));
}

TEST_F(HelperWindow, ALogTextWithoutANulEndsWithItsData) {
  EXPECT_EQ(Block(u"text").SendAs(502), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("text"));
}

TEST_F(HelperWindow, AnOddLastByteOfALogTextIsLeftOut) {
  EXPECT_EQ(Block(u"text", 7).SendAs(502), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("tex"));
}

TEST_F(HelperWindow, ALogTextOfNoUnitIsAStamp) {
  EXPECT_EQ(Block(u"text", 1).SendAs(502), 0);
  EXPECT_EQ(Block(u"text", 0).SendAs(502), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("", ""));
}

TEST_F(HelperWindow, ALogTextOfNoDataIsNone) {
  for (const DWORD size : {0u, 1u, 2u, 0xFFFFFFFFu}) EXPECT_EQ(Block::Send(502, size, nullptr), 0);
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(HelperWindow, NullDataWithASizeIsAnsweredForEveryTagAndOrigin) {
  for (const char16_t* origin : {u"", u"Client", u"Agent"}) {
    StoreOrigin(origin);
    for (const std::uintptr_t tag : kTags) {
      for (const DWORD size : {0u, 1u, 2u, 64u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Block::Send(tag, size, nullptr), 0) << tag;
      }
    }
  }
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(HelperWindow, AMessageWithoutItsStructIsAnswered) {
  EXPECT_EQ(HelperWindowProc({}, platform::WM_COPYDATA, 0, 0), 0);
}

TEST_F(HelperWindow, DataOfEveryLengthAreNotReadBeyondTheirEnd) {
  const std::u16string text = u"no such program";
  for (const char16_t* origin : {u"", u"Client", u"Agent"}) {
    StoreOrigin(origin);
    for (const std::uintptr_t tag : kTags) {
      for (std::size_t size = 0; size <= text.size() * 2; ++size) {
        EXPECT_EQ(Block(text, size).SendAs(tag), 0) << tag << ", " << size;
      }
    }
  }
}

TEST_F(HelperWindow, AnUnknownTagHasNoEffect) {
  using namespace std::string_view_literals;
  for (const std::uintptr_t tag :
       {std::uintptr_t{0}, std::uintptr_t{500}, std::uintptr_t{504}, std::uintptr_t{1} << 32}) {
    EXPECT_EQ(Block(u"text\0"sv).SendAs(tag), 0);
  }
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(HelperWindow, AClientThatCannotBeStartedIsSilent) {
  using namespace std::string_view_literals;
  for (const char16_t* origin : {u"Client", u"Unheard"}) {
    StoreOrigin(origin);
    EXPECT_EQ(Block(u"\"C:\\no such folder\\lumenar-client.exe\" \"x\"\0"sv).SendAs(501), 0);
    EXPECT_EQ(Block(u"\0"sv).SendAs(501), 0);
  }
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(HelperWindow, AUrlThatIsNotPostedIsNotLogged) {
  using namespace std::string_view_literals;
  StoreOrigin(u"Agent");
  EXPECT_EQ(Block(u"https://x\0"sv).SendAs(501), 0);
  EXPECT_THAT(log.Texts(), Not(testing::Contains("https://x")));
}

TEST_F(HelperWindow, ARefreshIsAnswered) { EXPECT_EQ(HelperWindowProc({}, platform::WM_USER, 0, 0), 0); }

TEST_F(HelperWindow, AMessageThatItDoesNotKnowGoesToTheSystem) {
  EXPECT_EQ(HelperWindowProc({}, platform::WM_NULL, 0, 0), 0);
  EXPECT_EQ(HelperWindowProc({}, platform::WM_USER + 1, 7, 7), 0);
}

// ---- Through a window. ----

// The next message of the thread that is for the window or ends the loop.
MSG NextFor(HWND window) {
  MSG message{};
  while (platform::GetMessageW(&message, nullptr, 0, 0) > 0 && message.hwnd != window) {
    platform::DispatchMessageW(&message);
  }
  return message;
}

TEST_F(HelperWindow, ARefreshIsPutIntoTheQueueAndRunsFromThere) {
  constexpr platform::UINT kBehind = platform::WM_USER + 1;
  const HelperClassWindow window(&HelperWindowProc);
  EXPECT_EQ(handOff::SendToHelper(handOff::HELPER_REFRESH_CONFIG, nullptr, 0), handOff::Outcome::Sent);
  platform::PostMessageW(window.get(), kBehind, 0, 0);
  const MSG refresh = NextFor(window.get());
  EXPECT_EQ(refresh.message, platform::WM_USER);
  EXPECT_EQ(platform::DispatchMessageW(&refresh), 0);
  EXPECT_EQ(NextFor(window.get()).message, kBehind);
}

TEST_F(HelperWindow, TheEndOfTheWindowEndsTheLoop) {
  const HelperClassWindow window(&HelperWindowProc);
  platform::PostMessageW(window.get(), platform::WM_DESTROY, 0, 0);
  const MSG end = NextFor(window.get());
  EXPECT_EQ(end.message, platform::WM_DESTROY);
  EXPECT_EQ(platform::DispatchMessageW(&end), 0);
  MSG message{};
  EXPECT_EQ(platform::GetMessageW(&message, nullptr, 0, 0), 0);
  EXPECT_EQ(message.message, platform::WM_QUIT);
}

TEST_F(HelperWindow, EveryTagIsAnsweredWithZero) {
  const HelperClassWindow window(&HelperWindowProc);
  for (const std::uintptr_t tag : kTags) {
    std::u16string text = u"text";
    COPYDATASTRUCT message{.dwData = tag, .cbData = 10, .lpData = text.data()};
    std::uintptr_t answer = 99;
    EXPECT_NE(platform::SendMessageTimeoutW(window.get(), platform::WM_COPYDATA, 0,
                                            reinterpret_cast<platform::LPARAM>(&message), platform::SMTO_ABORTIFHUNG,
                                            500, &answer),
              0);
    EXPECT_EQ(answer, 0u) << tag;
  }
  EXPECT_EQ(NextFor(window.get()).message, platform::WM_USER);  // By tag 503.
}

TEST_F(HelperWindow, ATraceOfTheSameThreadIsWrittenWithinTheCall) {
  const HelperClassWindow window(&HelperWindowProc);
  SetLogging(true);
  debugLog::TraceViaHelper(u"%S=%d\n", "number", 7);
  debugLog::TraceViaHelper(u"no line end");
  EXPECT_THAT(log.Texts(), ElementsAre("number=7\n", "no line end"));
}

TEST_F(HelperWindow, ATraceOfAnotherThreadIsWrittenByTheWindowsThread) {
  {
    const HelperClassThread thread(&HelperWindowProc);
    std::u16string text = u"text\n";
    handOff::Outcome outcome = handOff::Outcome::Failed;
    // A machine that is busy may let the sender's half second pass.
    for (int i = 0; i < 100 && outcome == handOff::Outcome::Failed; ++i) {
      outcome = handOff::SendToHelper(handOff::HELPER_LOG_TEXT, text.data(), 12);
    }
    EXPECT_EQ(outcome, handOff::Outcome::Sent);
  }
  EXPECT_THAT(log.Texts(), testing::AllOf(Not(IsEmpty()), testing::Each("text\n")));
}

}  // namespace
}  // namespace unit
