#include "tests/roads/roadMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/files.h"
#include "platform/session.h"
#include "tests/roads/watchedProcess.h"

namespace roads {
namespace {

namespace fs = std::filesystem;
using support::Hive;

constexpr const char16_t* kResidentClass = u"CorvaneLumenar_UrlProtocolLaunchHelperClass";
constexpr const char16_t* kRoot = u"Software\\Corvane\\Lumenar\\URLRedirection";
constexpr const char16_t* kPolicy = u"Software\\Policies\\Corvane\\Lumenar\\URLRedirection\\apppath";
constexpr std::uint32_t kLongestRun = 60000;
constexpr platform::UINT SMTO_NORMAL = 0;

std::u16string LogFolder() {
  char16_t folder[platform::MAX_PATH] = u"";
  char16_t user[platform::MAX_PATH] = u"";
  platform::DWORD length = platform::MAX_PATH;
  platform::GetTempPathW(platform::MAX_PATH, folder);
  platform::GetUserNameW(user, &length);
  return std::u16string(folder) + u"corvane-" + user;
}

// All files of the log, the oldest first, without the carriage returns of text files.
std::string ReadLog(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::ranges::sort(files);
  std::string all;
  for (const fs::path& path : files) {
    std::ifstream file(path, std::ios::binary);
    all.append(std::istreambuf_iterator<char>(file), {});
  }
  std::erase(all, '\r');
  return all;
}

// The stamp in front of a text: "2026-01-31  23:59:59  ".
constexpr std::string_view kStamp = "dddd-dd-dd  dd:dd:dd  ";

bool IsStamp(std::string_view text) {
  return text.size() >= kStamp.size() &&
         std::ranges::equal(text.substr(0, kStamp.size()), kStamp,
                            [](char at, char is) { return is == 'd' ? at >= '0' && at <= '9' : at == is; });
}

Texts SplitAtStamps(std::string_view log) {
  Texts texts;
  while (!log.empty()) {
    if (IsStamp(log)) {
      texts.emplace_back();
      log.remove_prefix(kStamp.size());
    } else {
      if (texts.empty()) texts.emplace_back("(no stamp)");
      texts.back() += log.front();
      log.remove_prefix(1);
    }
  }
  return texts;
}

std::u16string Quoted(std::u16string_view argument) {
  std::u16string quoted = u"\"";
  std::size_t backslashes = 0;
  for (const char16_t unit : argument) {
    if (unit == u'"') quoted.append(backslashes + 1, u'\\');
    backslashes = unit == u'\\' ? backslashes + 1 : 0;
    quoted += unit;
  }
  return quoted.append(backslashes, u'\\') + u'"';
}

// The name of a program beside or above this one, with whatever ending programs have here.
fs::path WithOwnEnding(fs::path path) { return path += fs::path(support::OwnPath()).extension(); }

}  // namespace

fs::path ProgramPath() { return support::ProgramPath(); }

platform::HWND FindResident() { return platform::FindWindowW(kResidentClass, nullptr); }

int Await(support::Process& process) {
  if (!EndsWithin(process, kLongestRun)) {
    process.Kill();
    std::fputs("a process does not end\n", stderr);
    std::abort();
  }
  return process.Wait();
}

support::StartOptions OptionsFor(const fs::path& program, const std::vector<std::u16string>& arguments) {
  support::StartOptions options{.program = program.string(), .arguments = {}, .environment = {}};
  std::u16string line = u'"' + program.u16string() + u'"';
  for (const std::u16string& argument : arguments) {
    options.arguments.push_back(support::Narrow(argument));
    line += u' ' + Quoted(argument);
  }
  options.rawCommandLine = line;
  return options;
}

RoadMachine::RoadMachine() : logFolder_(machine_.HostPath(LogFolder())) {
  fs::remove_all(logFolder_);
  fs::create_directories(logFolder_);
  InstallClient(Folder());
}

RoadMachine::~RoadMachine() {
  resident_.reset();
  std::error_code ignored;
  fs::remove_all(logFolder_, ignored);
}

void RoadMachine::SetUp(std::u16string_view origin, std::u16string_view allowlist) {
  support::CreateKey(Hive::User, u"Software\\Corvane\\Lumenar");  // Without it the watcher has something to report.
  SetOrigin(origin);
  support::SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetDebugLog(true);
  SetAllowlist(allowlist);
  support::SetText(Hive::Machine, kPolicy, u"brokerHostname", u"host1");
  support::SetText(Hive::Machine, kPolicy, u"remoteItem", u"Calc");
}

void RoadMachine::SetOrigin(std::u16string_view origin) { support::SetText(Hive::Machine, kRoot, u"Origin", origin); }

void RoadMachine::SetAllowlist(std::u16string_view allowlist) {
  support::SetText(Hive::Machine, kPolicy, u"allowlist", allowlist);
}

void RoadMachine::SetDebugLog(bool on) { support::SetNumber(Hive::Machine, kRoot, u"DebugLog", on ? 1 : 0); }

void RoadMachine::InstallClient(std::u16string_view folder) {
  support::SetText(Hive::Machine, u"Software\\Corvane\\Lumenar", u"ClientInstallPath", folder);
  const fs::path recorder = WithOwnEnding(fs::path(support::OwnPath()).parent_path() / "standInRecorder");
  fs::create_directories(HostPath(folder));
  fs::copy_file(recorder, HostPath(std::u16string(folder) + u"lumenar-client.exe"),
                fs::copy_options::overwrite_existing);
}

// There is no event for a window that appears in another process; so this looks again and again while the process runs.
void RoadMachine::StartResident() {
  resident_.emplace(OptionsFor(ProgramPath(), {}));
  for (std::uint32_t waited = 0; waited < kLongestRun; waited += kBetweenLooks) {
    platform::DWORD owner = 0;
    if (const platform::HWND window = FindResident()) platform::GetWindowThreadProcessId(window, &owner);
    if (owner == resident_->Id()) {
      if (Settle()) return;
      break;
    }
    if (EndsWithin(*resident_, kBetweenLooks)) break;
  }
  FAIL() << "the resident helper does not answer";
}

int RoadMachine::EndResident() {
  platform::PostMessageW(FindResident(), platform::WM_DESTROY, 0, 0);
  const int exitCode = Await(*resident_);
  resident_.reset();
  return exitCode;
}

void RoadMachine::KillResident() {
  resident_->Kill();
  resident_->Wait();
  resident_.reset();
}

bool RoadMachine::Settle() {
  const platform::HWND window = FindResident();
  return window && platform::SendMessageTimeoutW(window, platform::WM_NULL, 0, 0, SMTO_NORMAL, kLongestRun, nullptr);
}

std::optional<std::uintptr_t> RoadMachine::Send(std::uintptr_t tag, const void* data, std::size_t size) {
  platform::COPYDATASTRUCT message{
      .dwData = tag, .cbData = static_cast<platform::DWORD>(size), .lpData = const_cast<void*>(data)};
  std::uintptr_t result = ~std::uintptr_t{0};
  if (platform::SendMessageTimeoutW(FindResident(), platform::WM_COPYDATA, 0,
                                    reinterpret_cast<platform::LPARAM>(&message), SMTO_NORMAL, kLongestRun,
                                    &result) == 0) {
    return std::nullopt;
  }
  return result;
}

std::optional<std::uintptr_t> RoadMachine::Send(std::uintptr_t tag, std::u16string_view text) {
  return Send(tag, text.data(), text.size() * sizeof(char16_t));
}

support::Process RoadMachine::Start(const std::vector<std::u16string>& arguments) {
  return support::Process(OptionsFor(ProgramPath(), arguments));
}

int RoadMachine::Run(const std::vector<std::u16string>& arguments) {
  support::Process process = Start(arguments);
  return Await(process);
}

int RoadMachine::Launch(std::u16string_view text) { return Run({std::u16string(kLaunchPrefix).append(text)}); }

Texts RoadMachine::NewLog() {
  const std::string log = ReadLog(logFolder_);
  return SplitAtStamps(std::string_view(log).substr(std::exchange(logTaken_, log.size())));
}

std::u16string RoadMachine::NextClient() {
  std::u16string line = recorder_.Next();
  EXPECT_TRUE(Settle());
  return line;
}

// Nothing tells of a client that was not started. So another one is: any that came before it would have reported first.
bool RoadMachine::NoOtherClient() {
  const std::u16string last = Client() + u" last";
  SetOrigin(u"Client");
  EXPECT_EQ(Send(501, last), 0u);
  return NextClient() == last;
}

std::u16string RoadMachine::Client() const { return u'"' + Folder() + u"lumenar-client.exe\""; }

}  // namespace roads
