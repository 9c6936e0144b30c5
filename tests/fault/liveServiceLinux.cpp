#include "tests/fault/liveServiceLinux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fault {

LiveService::LiveService()
    : process_({.program = support::Beside("standInService"), .arguments = {}, .environment = {}}) {
  EXPECT_THAT(process_.Hear(), testing::StartsWith("ready "));
  listener_ = std::thread([this] { Listen(); });
}

LiveService::~LiveService() {
  if (!listener_.joinable()) return;
  process_.Kill();
  listener_.join();
}

std::map<std::string, int> LiveService::End() {
  process_.Say("end");
  listener_.join();
  EXPECT_EQ(process_.Wait(), 0) << process_.ErrorOutput();
  return posted_;
}

void LiveService::Listen() {
  const std::string command = "command 2 url ";
  for (std::string line = process_.Hear(); !line.empty(); line = process_.Hear()) {
    EXPECT_THAT(line, testing::Not(testing::StartsWith("no command: ")));
    EXPECT_THAT(line, testing::Not(testing::StartsWith("error ")));
    if (line.starts_with(command)) ++posted_[line.substr(command.size())];
  }
}

}  // namespace fault
