// Which place each reader of the settings takes its answer from, over all that can be present or absent.
//
// One table: each of the four roots is absent, empty, holds an origin alone, or holds every value, as off or as on; and
// the user's 32-bit view says nothing, off or on for one of the two generations. A reader's answer is compared with
// that of an oracle which knows only the order of places.
#include <array>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>

#include "platform/raii.h"
#include "settings/redirectionSettings.h"
#include "tests/support/process.h"
#include "tests/support/targets.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using settings::UrlOrigin;

enum Root : unsigned { UserCurrent, UserLegacy, MachineCurrent, MachineLegacy, kRoots };
enum class Content : unsigned { Absent, Empty, OriginAlone, Off, On, kCount };
enum class View32 : unsigned { Nothing, CurrentOff, CurrentOn, LegacyOff, LegacyOn, kCount };

struct Row {
  std::array<Content, kRoots> roots{};
  View32 view = View32::Nothing;

  [[nodiscard]] bool Opens(Root root) const { return roots[root] != Content::Absent; }
  // The number that every flag of a root has; nothing where it has none.
  [[nodiscard]] std::optional<bool> Flag(Root root) const {
    if (roots[root] == Content::On) return true;
    if (roots[root] == Content::Off) return false;
    return std::nullopt;
  }
  [[nodiscard]] UrlOrigin Origin(Root root) const {
    switch (roots[root]) {
      case Content::OriginAlone:
      case Content::On: return UrlOrigin::Agent;
      case Content::Off: return UrlOrigin::Client;
      default: return UrlOrigin::Unknown;
    }
  }
  // What the user's 32-bit view says of a generation.
  [[nodiscard]] std::optional<bool> View(bool legacy) const {
    if (!support::kUserHas32BitView) return std::nullopt;
    if (view == (legacy ? View32::LegacyOff : View32::CurrentOff)) return false;
    if (view == (legacy ? View32::LegacyOn : View32::CurrentOn)) return true;
    return std::nullopt;
  }
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
  constexpr const char* kContents[] = {"absent", "empty", "origin", "off", "on"};
  constexpr const char* kViews[] = {"-", "current off", "current on", "legacy off", "legacy on"};
  constexpr const char* kNames[] = {"user", "user legacy", "machine", "machine legacy"};
  for (unsigned root = 0; root < kRoots; ++root) {
    stream << kNames[root] << ": " << kContents[static_cast<unsigned>(row.roots[root])] << ", ";
  }
  return stream << "32-bit view: " << kViews[static_cast<unsigned>(row.view)];
}

// The answers of all readers. A row in the table of the test, whole, so that a difference shows them all.
struct Answers {
  bool enabled = false;
  bool isAgent = false;
  UrlOrigin origin = UrlOrigin::Unknown;
  bool appPaths = false;
  bool ipRules = false;
  bool debugLog = false;
  std::u16string usersHttp;
  std::u16string machinesHttp;

  bool operator==(const Answers&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Answers& answers) {
  return stream << "enabled " << answers.enabled << ", agent " << answers.isAgent << ", origin "
                << static_cast<int>(answers.origin) << ", app paths " << answers.appPaths << ", IP rules "
                << answers.ipRules << ", debug log " << answers.debugLog << ", http '"
                << support::Narrow(answers.usersHttp) << "' and '" << support::Narrow(answers.machinesHttp) << "'";
}

// ---- The oracle. ----

std::optional<Root> FirstThatOpens(const Row& row, std::initializer_list<Root> order) {
  for (const Root root : order) {
    if (row.Opens(root)) return root;
  }
  return std::nullopt;
}

// The flag of a root, where the user's 32-bit view may turn a machine's "on" off.
std::optional<bool> EnabledOf(const Row& row, Root root) {
  const std::optional<bool> flag = row.Flag(root);
  const bool ofMachine = root == MachineCurrent || root == MachineLegacy;
  if (ofMachine && flag == true) return row.View(root == MachineLegacy).value_or(true);
  return flag;
}

bool ExpectedAppPaths(const Row& row) {
  const auto current = FirstThatOpens(row, {UserCurrent, MachineCurrent});
  if (!current || row.Origin(*current) == UrlOrigin::Unknown) return false;
  if (const auto enabled = EnabledOf(row, *current)) return *enabled;
  const auto legacy = FirstThatOpens(row, {UserLegacy, MachineLegacy});
  return legacy && EnabledOf(row, *legacy).value_or(false);
}

bool ExpectedIpRules(const Row& row) {
  const auto current = FirstThatOpens(row, {UserCurrent, MachineCurrent});
  if (!current) return false;
  if (const auto flag = row.Flag(*current)) return *flag;
  const auto legacy = FirstThatOpens(row, {UserLegacy, MachineLegacy});
  return legacy && row.Flag(*legacy).value_or(false);
}

// The subkey of a scheme exists where a root holds every value; it names its place.
std::u16string ExpectedHttp(const Row& row, Root current, Root legacy) {
  if (row.Flag(current)) return u"current";
  return row.Flag(legacy) ? u"legacy" : u"none";
}

Answers Expected(const Row& row) {
  Answers answers;
  if (const auto root = FirstThatOpens(row, {UserCurrent, UserLegacy, MachineCurrent, MachineLegacy})) {
    answers.enabled = row.Flag(*root).value_or(false);
    answers.isAgent = row.Origin(*root) == UrlOrigin::Agent;
  }
  if (const auto root = FirstThatOpens(row, {UserCurrent, MachineCurrent})) {
    answers.origin = row.Origin(*root);
    answers.debugLog = row.Flag(*root).value_or(false);
  }
  answers.appPaths = ExpectedAppPaths(row);
  answers.ipRules = ExpectedIpRules(row);
  answers.usersHttp = ExpectedHttp(row, UserCurrent, UserLegacy);
  answers.machinesHttp = ExpectedHttp(row, MachineCurrent, MachineLegacy);
  return answers;
}

// ---- The readers. ----

std::u16string Http(bool fromCurrentUser) {
  std::u16string clientRules;
  std::u16string agentRules;
  std::u16string brokerHostname;
  std::u16string remoteItem;
  return settings::GetProtocolRedirectionSettings(fromCurrentUser, u"http", UrlOrigin::Client, clientRules, agentRules,
                                                  brokerHostname, remoteItem)
             ? brokerHostname
             : u"none";
}

Answers Actual() {
  Answers answers;
  answers.enabled = settings::IsURLRedirectionEnabled(&answers.isAgent);
  answers.origin = settings::GetUrlRedirectionOrigin();
  std::u16string allowlist;
  std::u16string brokerHostname;
  std::u16string remoteItem;
  UrlOrigin origin = UrlOrigin::Unknown;
  answers.appPaths = settings::CheckAppPathSettings(allowlist, brokerHostname, remoteItem, origin);
  answers.ipRules = settings::IsSupportIpRules();
  debugLog::state.enabledUnread = true;
  answers.debugLog = debugLog::IsDebugLogEnabled();
  SetLogging(false);
  answers.usersHttp = Http(true);
  answers.machinesHttp = Http(false);
  return answers;
}

// ---- The hives. ----

void Store(Root root, Content content) {
  const Hive hive = root == UserCurrent || root == UserLegacy ? Hive::User : Hive::Machine;
  const bool legacy = root == UserLegacy || root == MachineLegacy;
  const std::u16string key = legacy ? kLegacyRoot : kRoot;
  support::DeleteKey(hive, key);
  if (content == Content::Absent) return;
  support::CreateKey(hive, key);
  if (content == Content::Empty) return;
  support::SetText(hive, key, u"Origin", content == Content::Off ? u"Client" : u"Agent");
  if (content == Content::OriginAlone) return;
  const std::uint32_t flag = content == Content::On ? 1 : 0;
  for (const char16_t* value : {u"Enabled", u"EnabledIPRules", u"DebugLog"}) support::SetNumber(hive, key, value, flag);
  support::SetText(hive, key + u"\\http", u"brokerHostname", legacy ? u"legacy" : u"current");
}

void Store(View32 view) {
  const std::u16string current = u"Software\\Wow6432Node\\Corvane\\Lumenar\\URLRedirection";
  const std::u16string legacy = u"Software\\Wow6432Node\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection";
  support::DeleteKey(Hive::User, current);
  support::DeleteKey(Hive::User, legacy);
  switch (view) {
    case View32::CurrentOff: support::SetNumber(Hive::User, current, u"Enabled", 0); break;
    case View32::CurrentOn: support::SetNumber(Hive::User, current, u"Enabled", 1); break;
    case View32::LegacyOff: support::SetNumber(Hive::User, legacy, u"Enabled", 0); break;
    case View32::LegacyOn: support::SetNumber(Hive::User, legacy, u"Enabled", 1); break;
    default: break;
  }
}

// Counts the row up, the last root fastest, and changes the hives where the row has changed. False behind the last row.
bool Advance(Row& row) {
  for (unsigned root = kRoots; root-- > 0;) {
    const auto next = static_cast<Content>(static_cast<unsigned>(row.roots[root]) + 1);
    row.roots[root] = next == Content::kCount ? Content::Absent : next;
    Store(static_cast<Root>(root), row.roots[root]);
    if (next != Content::kCount) return true;
  }
  row.view = static_cast<View32>(static_cast<unsigned>(row.view) + 1);
  if (row.view == View32::kCount) return false;
  Store(row.view);
  return true;
}

// In a process of its own: its readers leave keys open by promise, thousands of them over the whole table.
CHILD_BODY(ReadsThroughTheTable) {
  SetLogging(false);
  Row row;
  unsigned rows = 0;
  do {
    const Answers actual = Actual();
    const Answers expected = Expected(row);
    if (actual != expected) {
      std::ostringstream difference;
      difference << row << ": " << actual << "; expected: " << expected;
      support::Say(difference.str());
      return 1;
    }
    ++rows;
  } while (Advance(row));
  support::Say(std::to_string(rows));
  return 0;
}

TEST(Precedence, OfEveryReaderOverEveryStateOfTheRoots) {
  const support::Machine machine;
  support::SetText(Hive::Machine, kPolicy, u"allowlist", u".*");
  support::Process child = support::StartChild("ReadsThroughTheTable");
  EXPECT_EQ(child.Hear(), std::to_string(5 * 5 * 5 * 5 * 5));
  EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
}  // namespace unit
