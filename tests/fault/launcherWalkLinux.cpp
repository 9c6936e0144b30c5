// Launchers whose calls fail, next to a resident helper whose calls do not.
#include "tests/fault/faultWalkLinux.h"

namespace fault {
namespace {

class Launcher : public FaultWalk {
 protected:
  void WalkLauncher(std::u16string_view origin, const Texts& arguments, Promise promise) {
    const FaultMachine machine(origin);
    Healthy resident(machine);
    ASSERT_TRUE(resident.AwaitServing());
    promise.residentIsUp = true;
    promise.unless["CommandLineToArgvW#1"] = {kAlreadyRunning};  // As if there were no argument.
    Walk(machine, promise, [&](const Fault& fault) {
      FaultedProcess process(arguments, fault, machine.ReportPath("faulted"));
      Ending ending = process.AwaitEnd();
      return Outcome{.ending = std::move(ending), .log = machine.LogTexts()};
    });
    ASSERT_TRUE(EndResident());
    EXPECT_EQ(resident.AwaitEnd().exitCode, 0);
  }
};

const std::string kEnabled = "CheckAppPathSettings: Url Redirection is enabled.";
const std::string kUnknown = "CheckAppPathSettings: Url Redirection origin is unknown.";
const std::string kNoRoot = "CheckAppPathSettings: Failed to open Url Redirection root key.";
const std::string kNoLegacyRoot = "CheckAppPathSettings: Failed to open legacy Url Redirection root key.";
const std::string kNoPolicy = "Failed to get app path settings.";
const std::string kCheckFailed = "Check settings failed.";

// Each setting is looked for in the user's hive, where it is not, and then in the machine's: so a failure of the first
// changes nothing. A text takes two queries.
TEST_P(Launcher, OnTheClientRoad) {
  const Texts all = LaunchTexts();
  const std::string refused = "Do not redirect the app path: '" + AppPath() + "'.";
  const Texts withoutHost = {
      all[0], all[1], all[2],
      "StartRemoteApp: \"C:\\Client\\lumenar-client.exe\" \"lumenar-client:///calc?url=apppathrd%2Fpath=" +
          std::string(600, 'a') + "\""};
  const Texts withoutItem = {
      all[0], all[1], all[2],
      "StartRemoteApp: \"C:\\Client\\lumenar-client.exe\" \"lumenar-client://host1/?url=apppathrd%2Fpath=" +
          std::string(600, 'a') + "\""};
  WalkLauncher(u"Client", {LaunchUrl(AppPath())},
               {.log = all,
                .unless = {// The origin, read a second time: unknown, so the URL is dropped.
                           {"NtOpenKey#4", {}},
                           {"NtQueryValueKey#3", {}},
                           {"NtQueryValueKey#4", {}},
                           // And a third time, to check the settings.
                           {"NtOpenKey#6", {kUnknown, kCheckFailed}},
                           {"NtQueryValueKey#5", {kUnknown, kCheckFailed}},
                           {"NtQueryValueKey#6", {kUnknown, kCheckFailed}},
                           // Whether redirection is enabled.
                           {"NtOpenKey#8", {kNoRoot, kCheckFailed}},
                           {"NtQueryValueKey#7", {kNoLegacyRoot, kCheckFailed}},
                           // Whether the log is on.
                           {"NtOpenKey#11", {}},
                           {"NtQueryValueKey#8", {}},
                           // The policy: the rules, the host, the item.
                           {"NtOpenKey#12", {kEnabled, kNoPolicy, kCheckFailed}},
                           {"NtQueryValueKey#9", {kEnabled, refused}},
                           {"NtQueryValueKey#10", {kEnabled, refused}},
                           {"NtQueryValueKey#11", withoutHost},
                           {"NtQueryValueKey#12", withoutHost},
                           {"NtQueryValueKey#13", withoutItem},
                           {"NtQueryValueKey#14", withoutItem},
                           // Where the client is.
                           {"NtOpenKey#13", Without(all, 3)},
                           {"NtQueryValueKey#15", Without(all, 3)},
                           // Four texts on their way to the resident; the hand-off itself comes behind them.
                           {"FindWindowW#1", Without(all, 0)},
                           {"SendMessageTimeoutW#1", Without(all, 0)},
                           {"FindWindowW#2", Without(all, 1)},
                           {"SendMessageTimeoutW#2", Without(all, 1)},
                           {"FindWindowW#3", Without(all, 2)},
                           {"SendMessageTimeoutW#3", Without(all, 2)},
                           {"FindWindowW#4", Without(all, 3)},
                           {"SendMessageTimeoutW#4", Without(all, 3)}}});
}

TEST_P(Launcher, OnTheAgentRoad) {
  Texts all = Without(LaunchTexts(), 3);
  all.push_back("RdeCmdClient::PostRedirectionRequest: Post redirection " + AppPath() + " to rdeServer.");
  all.push_back("Try to connect guid: FFFFFFFE-EC5E-4088-B123-80B4AE233D0B.");
  // The last one of the texts: in the end nobody listens.
  const auto endsWith = [all](std::size_t count, const std::string& last) {
    Texts texts(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
    texts.push_back("RdeCmdClient::PostRdeCmdRequest: " + last);
    return texts;
  };
  const Texts noConnection = endsWith(5, "Failed to connect the rdeServer, error = 1.");
  all = endsWith(5, "Failed to connect the rdeServer, error = 10.");
  const std::string dropped = "SendMessageToRedirectUriToClient: Do not redirect the app path '" + AppPath() + "'";
  const std::string refused = "Do not redirect the app path: '" + AppPath() + "'.";
  WalkLauncher(u"Agent", {LaunchUrl(AppPath())},
               {.log = all,
                .unless = {// The origin: not Agent the first time, and not Client the second.
                           {"NtOpenKey#2", {}},
                           {"NtQueryValueKey#1", {}},
                           {"NtQueryValueKey#2", {}},
                           {"NtOpenKey#4", {kUnknown, kCheckFailed, dropped}},
                           {"NtQueryValueKey#3", {kUnknown, kCheckFailed, dropped}},
                           {"NtQueryValueKey#4", {kUnknown, kCheckFailed, dropped}},
                           {"NtOpenKey#6", {kNoRoot, kCheckFailed, dropped}},
                           {"NtQueryValueKey#5", {kNoLegacyRoot, kCheckFailed, dropped}},
                           {"NtOpenKey#9", {}},
                           {"NtQueryValueKey#6", {}},
                           {"NtOpenKey#10", {kEnabled, kNoPolicy, kCheckFailed, dropped}},
                           {"NtQueryValueKey#7", {kEnabled, refused, dropped}},
                           {"NtQueryValueKey#8", {kEnabled, refused, dropped}},
                           {"FindWindowW#1", Without(all, 0)},
                           {"SendMessageTimeoutW#1", Without(all, 0)},
                           {"FindWindowW#2", Without(all, 1)},
                           {"SendMessageTimeoutW#2", Without(all, 1)},
                           {"FindWindowW#3", Without(all, 2)},
                           {"SendMessageTimeoutW#3", Without(all, 2)},
                           // The post. A stream without a name, and a service that does not say that it listens, are
                           // asked for all the same.
                           {"FindWindowW#4", Without(all, 3)},
                           {"SendMessageTimeoutW#4", Without(all, 3)},
                           {"UuidFromStringW#1", endsWith(4, "Failed to generate GUID from string.")},
                           {"ProcessIdToSessionId#1", endsWith(4, "Failed to initialize endpoint GUID.")},
                           {"FindWindowW#5", Without(all, 4)},
                           {"SendMessageTimeoutW#5", Without(all, 4)},
                           {"CreateThreadpoolCleanupGroup#1", noConnection},
                           {"StringFromGUID2#2", noConnection},
                           {"RpcStringBindingComposeW#1", noConnection},
                           {"RpcBindingFromStringBindingW#1", noConnection},
                           {"RpcBindingSetObject#1", noConnection},
                           {"RpcBindingSetAuthInfoExW#1", noConnection},
                           {"NdrClientCall3#1", noConnection},
                           {"FindWindowW#6", Without(all, 5)},
                           {"SendMessageTimeoutW#6", Without(all, 5)}}});
}

TEST_P(Launcher, RefusingWhatIsNoAppPath) {
  const std::string invalid = "SendMessageToRedirectAppPathToAgent: The app path is invalid: ";
  WalkLauncher(
      u"Client", {LaunchUrl("other")},
      {.log = {invalid + "other"},
       .unless = {{"NtOpenKey#4", {}},
                  {"NtQueryValueKey#3", {}},
                  {"NtQueryValueKey#4", {}},
                  // Without a size, what is converted is nothing, and that does not fail.
                  {"WideCharToMultiByte#1", {invalid}},
                  {"WideCharToMultiByte#2", {"WStringToString: Failed to convert other, error=0x00000008", invalid}},
                  {"GetTempPathW#1", {}},
                  {"GetUserNameW#1", {}},
                  {"_wfopen#1", {}},
                  {"fputws#1", {}},
                  {"fclose#1", {}}}});
}

TEST_P(Launcher, OpeningLocally) {
  // A key or a value that cannot be read is as good as none.
  const std::string unassociated = "ShellExecute failed: url 'fault:a' with err = 1155.";
  WalkLauncher(u"Client", {"--url", "fault:a"},
               {.log = {},
                .unless = {{"ShellExecuteExW#1", {"ShellExecute failed: url 'fault:a' with err = 8."}},
                           {"RegOpenKeyExW#1", {unassociated}},
                           {"RegGetValueW#1", {unassociated}}}});
}

TEST_P(Launcher, TellingThatNothingIsAssociated) { WalkLauncher(u"Client", {"fault:a"}, {.log = {}, .unless = {}}); }

// The resident's refresh is none of the launcher's doing.
TEST_P(Launcher, AskingForARefresh) {
  WalkLauncher(u"Client", {LaunchUrl("#createConfigData")}, {.log = {}, .unless = {}, .amongOthers = true});
}

INSTANTIATE_TEST_SUITE_P(Calls, Launcher, testing::Values(Mode::Once, Mode::FromThereOn), ModeName);

}  // namespace
}  // namespace fault
