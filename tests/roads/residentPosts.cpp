// The resident helper of a machine of origin "Agent", which posts what others hand it.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class ResidentPosts : public testing::Test {
 protected:
  ResidentPosts() {
    machine.SetUp(u"Agent", u"nothing");
    machine.StartResident();
    static_cast<void>(machine.NewLog());
  }
  ~ResidentPosts() override { EXPECT_EQ(machine.EndResident(), 0); }

  void Post(std::u16string_view text) { EXPECT_EQ(machine.Send(kLaunchOrPost, text), 0u); }

  RoadMachine machine;
};

// Neither decoded nor held against the rules.
TEST_F(ResidentPosts, WhatItIsHandedAsItStands) {
  CommandService service;
  const std::vector<std::u16string> texts{
      u"https%3A//example.com/a", u"apppathrd/path=x", u"", machine.Client() + u" \"a b\"", {u'a', 0xDE00, 0xD83D}};
  for (const std::u16string& text : texts) {
    Post(text + u'\0');
    EXPECT_THAT(Beginning(service.UntilEnded(1), "command "), ElementsAre(CommandLine(text)));
  }
  EXPECT_THAT(service.End(), IsEmpty());
  EXPECT_TRUE(machine.NoOtherClient()) << "it starts no program";
}

TEST_F(ResidentPosts, AndLogsWhatItHasPosted) {
  {
    CommandService service;
    Post(u"https://example.com/posted");
    EXPECT_THAT(machine.NewLog(), Contains("https://example.com/posted"));
  }
  CommandService refuses({"--refuse", "7"});
  Post(u"https://example.com/refused");
  EXPECT_THAT(machine.NewLog(), Not(Contains("https://example.com/refused")));
}

}  // namespace
}  // namespace roads
