#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "tests/support/standInServiceOptions.h"

namespace standIn {
namespace {

using testing::HasSubstr;

Options Parsed(const std::vector<std::string>& arguments) {
  const auto options = ParseOptions(arguments);
  if (const auto* fault = std::get_if<std::string>(&options)) {
    ADD_FAILURE() << *fault;
    return {};
  }
  return std::get<Options>(options);
}

std::string Refused(const std::vector<std::string>& arguments) {
  const auto options = ParseOptions(arguments);
  const auto* fault = std::get_if<std::string>(&options);
  return fault == nullptr ? "accepted" : *fault;
}

TEST(StandInOptions, AreThoseOfAnHonestServiceWithoutSwitches) {
  const Options options = Parsed({});
  EXPECT_FALSE(options.endpoint);
  EXPECT_EQ(options.channelSize, 0x10000u);
  EXPECT_FALSE(options.commands);
  EXPECT_EQ(options.connectStatus, 0);
  EXPECT_EQ(options.dieWhen, DieWhen::Never);
  EXPECT_EQ(options.closeAnswer, CloseAnswer::AtOnce);
  EXPECT_TRUE(options.onceConnected.empty());
}

TEST(StandInOptions, TakeEverySwitch) {
  const Options options = Parsed({"--guid",
                                  "ad14170a-ec5e-4088-b123-80b4ae233d0b",
                                  "--channel-size",
                                  "69",
                                  "--messages",
                                  "2",
                                  "--listen-after-line",
                                  "--blocks",
                                  "--bytes",
                                  "--refuse",
                                  "7",
                                  "--leave-status-preset",
                                  "--call-status",
                                  "1722",
                                  "--refuse-open",
                                  "10",
                                  "--die",
                                  "in-transaction",
                                  "--hold-first-consumed",
                                  "--close-answer",
                                  "late",
                                  "--open",
                                  "a name",
                                  "--wrong-crc"});
  ASSERT_TRUE(options.endpoint);
  EXPECT_EQ(GuidText(*options.endpoint), "{AD14170A-EC5E-4088-B123-80B4AE233D0B}");
  EXPECT_EQ(options.channelSize, 69u);
  EXPECT_EQ(options.commands, 2u);
  EXPECT_TRUE(options.listenAfterLine && options.printBlocks && options.printBytes);
  EXPECT_EQ(options.connectStatus, 7);
  EXPECT_TRUE(options.leaveStatusPreset);
  EXPECT_EQ(options.callStatus, 1722u);
  EXPECT_EQ(options.openStatus, 10u);
  EXPECT_EQ(options.dieWhen, DieWhen::InTransaction);
  EXPECT_TRUE(options.holdFirstConsumed);
  EXPECT_EQ(options.closeAnswer, CloseAnswer::Late);
  ASSERT_EQ(options.onceConnected.size(), 2u);
  EXPECT_EQ(options.onceConnected[0].deed, Deed::Open);
  EXPECT_EQ(options.onceConnected[0].text, u"a name");
  EXPECT_EQ(options.onceConnected[1].deed, Deed::WrongChecksum);
}

TEST(StandInOptions, AreRefusedWhenTheyMeanNothing) {
  EXPECT_EQ(Refused({"--guess"}), "unknown switch --guess");
  EXPECT_EQ(Refused({"guid"}), "'guid' is no switch");
  EXPECT_EQ(Refused({"--guid"}), "--guid needs a value");
  EXPECT_EQ(Refused({"--guid", "{AD14170A}"}), "--guid takes a GUID");
  EXPECT_EQ(Refused({"--channel-size", "68"}), "--channel-size does not take '68'");
  EXPECT_EQ(Refused({"--channel-size", "1k"}), "--channel-size does not take '1k'");
  EXPECT_EQ(Refused({"--messages", "0"}), "--messages does not take '0'");
  EXPECT_EQ(Refused({"--die", "soon"}), "--die does not take 'soon'");
  EXPECT_EQ(Refused({"--close-answer", "now"}), "--close-answer does not take 'now'");
  EXPECT_EQ(Refused({"--send"}), "--send needs a value");
}

TEST(StandInOptions, OrdersComeAsLinesToo) {
  const auto send = ParseOrder("send two words");
  ASSERT_TRUE(send);
  EXPECT_EQ(send->deed, Deed::Send);
  EXPECT_EQ(send->text, u"two words");
  const auto consume = ParseOrder("consume");
  ASSERT_TRUE(consume);
  EXPECT_EQ(consume->deed, Deed::Consume);
  EXPECT_FALSE(ParseOrder("consume all"));
  EXPECT_FALSE(ParseOrder("send"));
  EXPECT_FALSE(ParseOrder(""));
}

TEST(StandInOptions, HelpNamesEverySwitch) {
  for (const char* name : {"guid",
                           "channel-size",
                           "messages",
                           "listen-after-line",
                           "blocks",
                           "bytes",
                           "refuse",
                           "leave-status-preset",
                           "call-status",
                           "refuse-open",
                           "die",
                           "hold-first-consumed",
                           "close-answer",
                           "wrong-crc",
                           "wrong-sequence",
                           "no-blocks",
                           "unknown-type",
                           "stop",
                           "error",
                           "deafen",
                           "consume",
                           "answer-close",
                           "open",
                           "send",
                           "close",
                           "shutdown"}) {
    EXPECT_THAT(Usage(), HasSubstr(name));
  }
}

TEST(StandInOptions, EachSessionHasAnEndpointOfItsOwn) {
  EXPECT_EQ(GuidText(CommandEndpoint(0)), "{FFFFFFFF-EC5E-4088-B123-80B4AE233D0B}");
  EXPECT_EQ(GuidText(CommandEndpoint(1)), "{FFFFFFFE-EC5E-4088-B123-80B4AE233D0B}");
}

TEST(StandInOptions, AGuidComesWithOrWithoutBraces) {
  EXPECT_EQ(ParseGuid("{AD14170A-EC5E-4088-B123-80B4AE233D0B}"), ParseGuid("AD14170A-EC5E-4088-B123-80B4AE233D0B"));
  EXPECT_FALSE(ParseGuid("{AD14170A-EC5E-4088-B123-80B4AE233D0B"));
  EXPECT_FALSE(ParseGuid("AD14170A-EC5E-4088-B123-80B4AE233D0G"));
  EXPECT_FALSE(ParseGuid("AD14170A-EC5E-4088-B123+80B4AE233D0B"));
  EXPECT_FALSE(ParseGuid(""));
}

}  // namespace
}  // namespace standIn
