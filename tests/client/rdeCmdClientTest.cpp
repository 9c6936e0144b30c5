#include "client/rdeCmdClient.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include "tests/client/clientFixture.h"
#include "tests/unit/frontEndTest.h"

namespace clientTests {
namespace {

class RdeClient final : public client::RdeCmdClient {
 public:
  using RdeCmdClient::RdeCmdClient;
  ~RdeClient() override { Disconnect(); }
  [[nodiscard]] const std::shared_ptr<quill::ipc::LmIpclib>& Ipclib() const { return ipclib; }
};

class RedirectionRequest : public unit::TracedTest {
 protected:
  std::uint32_t Post(const std::u16string& url, std::uint32_t command = client::RdeCmdClient::kOpenUrl) {
    return RdeClient().PostRedirectionRequest(command, url.c_str());
  }
  std::vector<std::string> TakeTraces() {
    auto traces = helper.Traces();
    helper.Forget();
    return traces;
  }

  Service service;
  ReplacedCalls calls;
};

std::string Little(std::uint32_t number) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(number >> (8 * i));
  return bytes;
}

// A command message, put together by hand.
std::string Message(std::uint32_t command, std::u16string_view url) {
  std::string text;
  for (const char16_t unit : url) {
    text += static_cast<char>(unit & 0xFF);
    text += static_cast<char>(unit >> 8);
  }
  return Little(command) + Little(static_cast<std::uint32_t>(text.size() + 2)) + text + std::string(2 + 4, '\0');
}

constexpr const char* kPosting = "RdeCmdClient::PostRedirectionRequest: Post redirection https://x/ to rdeServer.\n";
constexpr const char* kTrying = "Try to connect guid: FFFFFFFE-EC5E-4088-B123-80B4AE233D0B.\n";

TEST_F(RedirectionRequest, CrossesAsOneCommandMessage) {
  calls.session = 1;
  EXPECT_EQ(Post(u"https://x/"), 1u);
  EXPECT_EQ(service.NextMessage(),
            std::string("\x02\0\0\0\x16\0\0\0h\0t\0t\0p\0s\0:\0/\0/\0x\0/\0\0\0\0\0\0\0", 8 + 22 + 4));
  EXPECT_EQ(service.NextMessage(), "<end>");
  EXPECT_THAT(TakeTraces(), ElementsAre(kPosting, kTrying, "Connect to rdeServer succeed.\n"));
  EXPECT_THAT(service.Asked(), ElementsAre(StreamFlags(265)));
}

TEST_F(RedirectionRequest, CarriesEveryTextUnitForUnit) {
  const std::u16string texts[] = {
      u"",
      u"x",
      u"gr\u00FC\u00DFe",
      u"\U0001F600",
      u"\xD800",
      u"\xDC00x\xD800",
      std::u16string(2084, u'a'),
      std::u16string(2085, u'b'),
      std::u16string(32'000, u'\u4E2D'),
      u"%s%n%d%S%%",
      u"tavrix-prism-url-launch://x",
  };
  for (const auto& text : texts) {
    EXPECT_EQ(Post(text), 1u);
    EXPECT_EQ(service.NextMessage(), Message(2, text));
    EXPECT_EQ(service.NextMessage(), "<end>");
  }
}

TEST_F(RedirectionRequest, OfNoTextHasFourteenBytes) {
  EXPECT_EQ(Post(u""), 1u);
  EXPECT_EQ(service.NextMessage(), std::string("\x02\0\0\0\x02\0\0\0\0\0\0\0\0\0", 14));
}

TEST_F(RedirectionRequest, BearsItsCommand) {
  EXPECT_EQ(Post(u"x", 0x81828384), 1u);
  EXPECT_EQ(service.NextMessage(), Message(0x81828384, u"x"));
}

TEST_F(RedirectionRequest, GoesToTheEndpointOfItsSession) {
  struct {
    std::uint32_t session, first;
  } constexpr cases[] = {
      {0, 0xFFFFFFFF}, {1, 0xFFFFFFFE}, {0x12345678, 0xEDCBA987}, {0xFFFFFFF5, 0xA}, {0xFFFFFFFF, 0}};
  for (const auto& [session, first] : cases) {
    calls.session = session;
    EXPECT_EQ(Post(u"x"), 1u);
    const platform::GUID endpoint{first, 0xEC5E, 0x4088, {0xB1, 0x23, 0x80, 0xB4, 0xAE, 0x23, 0x3D, 0x0B}};
    EXPECT_EQ(service.Waits().back().endpoint, endpoint) << session;
    EXPECT_EQ(TakeTraces().at(1), fmt::format("Try to connect guid: {:08X}-EC5E-4088-B123-80B4AE233D0B.\n", first));
  }
}

TEST_F(RedirectionRequest, WithoutMemoryFails) {
  calls.allocatorIsEmpty = true;
  EXPECT_EQ(Post(u"https://x/"), 0u);
  calls.allocatorIsEmpty = false;
  EXPECT_THAT(TakeTraces(), ElementsAre("RdeCmdClient::PostRedirectionRequest: Error to allocate rdeCmdMsg.\n"));
  EXPECT_THAT(service.Waits(), IsEmpty());
}

TEST_F(RedirectionRequest, WithoutAnEndpointFails) {
  calls.noIdFromText = true;
  EXPECT_EQ(Post(u"https://x/"), 0u);
  EXPECT_THAT(TakeTraces(),
              ElementsAre(kPosting, "RdeCmdClient::PostRdeCmdRequest: Failed to generate GUID from string.\n"));
  EXPECT_THAT(service.Waits(), IsEmpty());
}

TEST_F(RedirectionRequest, WithoutASessionFails) {
  calls.noSession = true;
  EXPECT_EQ(Post(u"https://x/"), 0u);
  EXPECT_THAT(TakeTraces(),
              ElementsAre(kPosting, "RdeCmdClient::PostRdeCmdRequest: Failed to initialize endpoint GUID.\n"));
  EXPECT_THAT(service.Waits(), IsEmpty());
}

TEST_F(RedirectionRequest, ThatReachesNobodyFailsWithTheStatus) {
  calls.session = 1;
  service.isReachable = false;
  EXPECT_EQ(Post(u"https://x/"), 0u);
  EXPECT_THAT(TakeTraces(), ElementsAre(kPosting, kTrying,
                                        "RdeCmdClient::PostRdeCmdRequest: Failed to connect the rdeServer, error = "
                                        "10.\n"));
  EXPECT_EQ(service.Asked().size(), 1u) << "nothing is retried";
}

TEST_F(RedirectionRequest, ThatTheServiceRefusesFailsWithItsStatus) {
  calls.session = 1;
  service.answers = [] { return Status::AccessDenied; };
  EXPECT_EQ(Post(u"https://x/"), 0u);
  EXPECT_EQ(TakeTraces().back(), "RdeCmdClient::PostRdeCmdRequest: Failed to connect the rdeServer, error = 7.\n");
  EXPECT_EQ(service.Asked().size(), 1u) << "nothing is retried";
}

TEST_F(RedirectionRequest, WithoutALibraryFailsWithItsStatus) {
  calls.noCleanupGroup = true;
  EXPECT_EQ(Post(u"https://x/"), 0u);
  EXPECT_EQ(TakeTraces().back(), "RdeCmdClient::PostRdeCmdRequest: Failed to connect the rdeServer, error = 1.\n");
}

TEST_F(RedirectionRequest, WhoseStreamEndsBeforeItIsSentFails) {
  calls.session = 1;
  const Logged logged;
  RdeClient client;
  // The line says that the connection stands; and then it ends.
  logged.lines->Then(3, [&] { static_cast<void>(client.Ipclib()->uninit()); });
  EXPECT_EQ(client.PostRedirectionRequest(2, u"https://x/"), 0u);
  EXPECT_THAT(TakeTraces(), ElementsAre(kPosting, kTrying, "Connect to rdeServer succeed.\n",
                                        "RdeCmdClient::PostRdeCmdRequest: Failed to send message to rdeServer.\n"));
  EXPECT_EQ(client.Ipclib(), nullptr) << "it is closed all the same";
}

TEST_F(RedirectionRequest, DropsWhatTheServiceSays) {
  service.answers = [] { return Status::Success; };
  RdeClient client;
  EXPECT_EQ(client.ConnectToStream(kEndpoint, 1), Status::Success);
  service.Send("nobody wants to know");
  service.CloseStreams();
  service.AwaitLinksClosed();
  EXPECT_EQ(client.CloseStream(), Status::Success);
  EXPECT_EQ(client.ReservedOperation(), 0);
}

TEST_F(RedirectionRequest, IsSilentWithTheLogSwitchedOff) {
  unit::SetLogging(false);
  EXPECT_EQ(Post(u"https://x/"), 1u);
  service.isReachable = false;
  EXPECT_EQ(Post(u"https://x/"), 0u);
  EXPECT_THAT(TakeTraces(), IsEmpty());
}

}  // namespace
}  // namespace clientTests
