#include "tests/unit/dailyLog.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>

#include "platform/files.h"
#include "platform/session.h"

namespace unit {
namespace {

std::u16string FolderOnTheMachine() {
  char16_t temporary[platform::MAX_PATH] = u"";
  char16_t user[platform::MAX_PATH] = u"";
  platform::DWORD size = platform::MAX_PATH;
  if (platform::GetTempPathW(platform::MAX_PATH, temporary) == 0 || !platform::GetUserNameW(user, &size)) std::abort();
  return std::u16string(temporary) + u"corvane-" + user;
}

}  // namespace

DailyLog::DailyLog(const support::Machine& machine) : folder_(machine.HostPath(FolderOnTheMachine())) {
  RemoveFolder();
  std::filesystem::create_directories(folder_);
}

DailyLog::~DailyLog() { RemoveFolder(); }

void DailyLog::RemoveFolder() { std::filesystem::remove_all(folder_); }

std::vector<std::string> DailyLog::Files() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    names.push_back(entry.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

std::string DailyLog::Content() const {
  std::string content;
  for (const std::string& name : Files()) {
    std::ifstream file(folder_ / name, std::ios::binary);
    content.append(std::istreambuf_iterator<char>(file), {});
  }
  return content;
}

std::vector<std::string> DailyLog::Texts() const {
  std::string content = Content();
  std::erase(content, '\r');
  static const std::regex stamp(R"(\d+-\d\d-\d\d  \d\d:\d\d:\d\d  )");
  std::vector<std::string> texts;
  for (std::sregex_iterator at(content.begin(), content.end(), stamp), end; at != end;) {
    const auto begin = at->position() + at->length();
    ++at;
    const auto behind = at == end ? static_cast<std::ptrdiff_t>(content.size()) : at->position();
    texts.push_back(content.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(behind - begin)));
  }
  return texts;
}

}  // namespace unit
