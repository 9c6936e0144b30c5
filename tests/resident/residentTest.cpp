#include "tests/resident/residentTest.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "launcher/debugLog.h"
#include "platform/files.h"
#include "platform/raii.h"
#include "tests/support/targets.h"

namespace resident {
namespace {

platform::HKEY RootOf(Hive hive) {
  return hive == Hive::User ? platform::HKEY_CURRENT_USER : platform::HKEY_LOCAL_MACHINE;
}

platform::UniqueKey Opened(Hive hive, const std::u16string& key) {
  platform::UniqueKey opened;
  platform::RegOpenKeyExW(RootOf(hive), key.c_str(), 0, platform::KEY_READ | platform::KEY_WOW64_64KEY, opened.put());
  return opened;
}

std::vector<std::uint8_t> BytesOf(std::u16string_view text) {
  std::vector<std::uint8_t> bytes(text.size() * sizeof(char16_t));
  if (!bytes.empty()) std::memcpy(bytes.data(), text.data(), bytes.size());
  return bytes;
}

// This process's part of the log, as a new process would find it.
void ForgetLogState() {
  for (auto& unit : debugLog::state.path) unit = u'\0';
  debugLog::state.day = -1;
  debugLog::state.enabled = false;
  debugLog::state.enabledUnread = true;
}

}  // namespace

std::optional<Value> Stored(Hive hive, const std::u16string& key, const std::u16string& name) {
  const platform::UniqueKey opened = Opened(hive, key);
  Value value{};
  platform::DWORD size = 0;
  if (!opened || platform::RegQueryValueExW(opened.get(), name.c_str(), nullptr, &value.type, nullptr, &size) != 0) {
    return std::nullopt;
  }
  value.bytes.resize(size + 1);
  if (platform::RegQueryValueExW(opened.get(), name.c_str(), nullptr, &value.type, value.bytes.data(), &size) != 0) {
    return std::nullopt;
  }
  value.bytes.resize(size);
  return value;
}

Value Unterminated(std::u16string_view text) {
  return support::kStoresNulBehindText ? Terminated(text) : Value{platform::REG_SZ, BytesOf(text)};
}

Value Terminated(std::u16string_view text) { return {platform::REG_SZ, BytesOf(std::u16string(text) + u'\0')}; }

bool KeyExists(Hive hive, const std::u16string& key) { return static_cast<bool>(Opened(hive, key)); }

std::vector<std::u16string> Subkeys(Hive hive, const std::u16string& key) {
  const platform::UniqueKey opened = Opened(hive, key);
  std::vector<std::u16string> names;
  char16_t name[platform::MAX_PATH];
  for (platform::DWORD i = 0; opened && platform::RegEnumKeyW(opened.get(), i, name, platform::MAX_PATH) == 0; ++i) {
    names.emplace_back(name);
  }
  return names;
}

void SetUnterminated(Hive hive, const std::u16string& key, const std::u16string& name, std::u16string_view text) {
  support::SetBytes(hive, key, name, platform::REG_SZ, BytesOf(text));
}

void MakeMachine(std::u16string_view origin, std::uint32_t enabled) {
  support::SetText(Hive::Machine, kRoot, u"Origin", origin);
  support::SetNumber(Hive::Machine, kRoot, u"Enabled", enabled);
}

std::u16string Scheme(std::u16string_view name) { return std::u16string(support::kTestScheme).append(name); }

std::u16string LocalFolder() {
  char16_t path[platform::MAX_PATH] = u"";
  if (platform::SHGetFolderPathW(nullptr, platform::CSIDL_LOCAL_APPDATA, nullptr, 0, path) < 0) std::abort();
  return path;
}

std::u16string ChromeFolder() {
  return LocalFolder() + u"\\Google\\Chrome\\User Data\\Default\\Extensions\\" + kExtensionId;
}

std::u16string EdgeFolder() {
  return LocalFolder() + u"\\Microsoft\\Edge\\User Data\\Default\\Extensions\\" + kExtensionId;
}

std::u16string FirefoxFolder() { return LocalFolder() + u"\\Mozilla\\Firefox\\Profiles"; }

ResidentTest::ResidentTest() { ForgetLogState(); }

ResidentTest::~ResidentTest() { ForgetLogState(); }

void ResidentTest::MakeFolder(const std::u16string& folder) const {
  std::filesystem::create_directories(machine.HostPath(folder));
}

void ResidentTest::Put(const std::u16string& file, const std::string& content) const {
  std::filesystem::create_directories(machine.HostPath(file).parent_path());
  std::ofstream(machine.HostPath(file), std::ios::binary) << content;
}

std::optional<std::string> ResidentTest::Content(const std::u16string& file) const {
  std::ifstream stream(machine.HostPath(file), std::ios::binary);
  if (!stream) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

TracedResidentTest::TracedResidentTest() {
  debugLog::state.enabled = true;
  debugLog::state.enabledUnread = false;
}

}  // namespace resident
