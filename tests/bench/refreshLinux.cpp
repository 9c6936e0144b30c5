// How long a refresh takes, in which the settings become the browsers' data files: the program's own, next to two
// floors; and how long it takes from a change of the registry until a resident helper has the new file on the disk.
//
// The floors read the same hive and serialise the same documents with the registry's reader and the JSON library alone,
// and write no file. The upper one makes each document of what the reader has read; the lower one has them ready, and
// so leaves out work that no refresh can.
//
//   refresh [--runs COUNT]      default 50 of each, in turn
#include <fcntl.h>
#include <json/reader.h>
#include <json/value.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "browser/extensionData.h"
#include "platform/files.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/regFile.h"
#include "platform/linux/wholeFile.h"
#include "platform/text.h"
#include "settings/browserType.h"
#include "tests/bench/clientMachineLinux.h"
#include "tests/bench/figures.h"
#include "tests/support/machine.h"

namespace {

namespace files = std::filesystem;
namespace registry = platform::registry;
using Clock = std::chrono::steady_clock;

constexpr unsigned kFew = 1'000;
constexpr unsigned kMany = 10'000;
constexpr unsigned kRulesOfAScheme = 20;
constexpr unsigned kRunsOfABlock = 10;

double MillisecondsSince(Clock::time_point began) {
  return std::chrono::duration<double, std::milli>(Clock::now() - began).count();
}

void Demand(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

std::string ContentOf(const files::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Redirection is off, so that a resident helper does not claim the schemes; the documents are the same but for that.
std::string MachineHive(unsigned schemes) {
  const std::string root = "HKEY_LOCAL_MACHINE\\Software\\Corvane\\Lumenar\\URLRedirection";
  std::string text =
      "Windows Registry Editor Version 5.00\n\n[" + root + "]\n\"Origin\"=\"Agent\"\n\"Enabled\"=dword:00000000\n\n";
  for (unsigned scheme = 0; scheme < schemes; ++scheme) {
    const std::string name = "scheme" + std::to_string(scheme);
    text += "[" + root + "\\" + name + "]\n\"brokerHostname\"=\"broker.example.com\"\n\"remoteItem\"=\"Desktop\"\n";
    text += "\"rules\"=\"";
    for (unsigned rule = 0; rule < kRulesOfAScheme; ++rule) {
      text += "*." + name + ".example.com/path" + std::to_string(rule) + "/.*;";
    }
    text += "\"\n\n";
  }
  return text;
}

// A machine with the three browsers, on which the settings change.
class BrowserMachine {
 public:
  BrowserMachine() : hives_(machine_.HostPath(u"C:").parent_path()) {
    char16_t folder[platform::MAX_PATH] = {};
    platform::SHGetFolderPathW(nullptr, platform::CSIDL_LOCAL_APPDATA, nullptr, 0, folder);
    const files::path local = machine_.HostPath(folder);
    const std::string extension = "User Data/Default/Extensions/pgmkcoafbnjdeihlmkgobfajcpeidnhl/1.0";
    data_ = {local / "Google/Chrome" / extension, local / "Microsoft/Edge" / extension,
             local / "Mozilla/Firefox/Profiles"};
    for (files::path& file : data_) {
      files::create_directories(file);
      file /= "data.json";
    }
    support::CreateKey(support::Hive::User, u"Software\\Corvane\\Lumenar");
    for (const unsigned schemes : {kFew, kMany}) std::ofstream(KeptHive(schemes)) << MachineHive(schemes);
  }

  // A new file, so that whoever has read the hive reads it again.
  void Install(unsigned schemes) const {
    files::copy_file(KeptHive(schemes), hives_ / "new.reg", files::copy_options::overwrite_existing);
    files::rename(hives_ / "new.reg", HivePath());
  }

  [[nodiscard]] files::path HivePath() const { return hives_ / "machine.reg"; }
  // Of each browser, in the order in which they are written.
  [[nodiscard]] const std::vector<files::path>& DataFiles() const { return data_; }

 private:
  [[nodiscard]] files::path KeptHive(unsigned schemes) const {
    return hives_ / ("kept" + std::to_string(schemes) + ".reg");
  }

  support::Machine machine_;
  files::path hives_;
  std::vector<files::path> data_;
};

void Refresh() {
  for (const browser::BrowserType browser : browser::kBrowsers) {
    Demand(browser::WriteExtensionData(browser), "a data file could not be written");
  }
}

// A text, of at least one unit, in UTF-8.
std::string Narrow(const char16_t* text, std::size_t units) {
  std::string narrow(units * 3, '\0');
  const int size = platform::WideCharToMultiByte(platform::CP_UTF8, 0, text, static_cast<int>(units), narrow.data(),
                                                 static_cast<int>(narrow.size()), nullptr, nullptr);
  narrow.resize(static_cast<std::size_t>(size));
  return narrow;
}

// The value of that name, a text with a NUL at its end. The hive keeps its bytes where any type may stand.
std::string TextOf(const registry::Key& key, std::u16string_view name) {
  const registry::Value& value = *key.FindValue(name);
  return Narrow(reinterpret_cast<const char16_t*>(value.data.data()), value.data.size() / 2 - 1);
}

// The rules as they stand in the hive, all of which begin with an asterisk, as they stand in a document.
std::string Normalized(std::string_view rules) {
  std::string normalized;
  normalized.reserve(rules.size() * 2);
  while (!rules.empty()) {
    const std::size_t end = rules.find(';');
    normalized.append(normalized.empty() ? "." : ";.").append(rules.substr(0, end));
    rules.remove_prefix(end + 1);
  }
  return normalized;
}

using Member = Json::StaticString;

// The document of a hive, without the registry's calls.
Json::Value DocumentOf(const registry::Key& root, bool forFirefox) {
  Json::Value document;
  document["host"] = "Windows";
  document["version"] = "8.18.0";
  document["enabled"] = 0;
  document["origin"] = "Agent";
  Json::Value& protocols = document["protocols"] = Json::Value(Json::arrayValue);
  for (const auto& [name, scheme] : root.Find(u"Software\\Corvane\\Lumenar\\URLRedirection")->subkeys()) {
    Json::Value protocol;
    protocol[Member("protocol")] = Narrow(name.data(), name.size());
    protocol[Member("brokerHostname")] = TextOf(*scheme, u"brokerHostname");
    protocol[Member("remoteItem")] = TextOf(*scheme, u"remoteItem");
    protocol[Member("clientRules")] = Normalized(TextOf(*scheme, u"rules"));
    protocol[Member("agentRules")] = "";
    protocols.append(std::move(protocol));
  }
  if (!forFirefox) {
    document["enabledIpRule"] = 0;
    return document;
  }
  Json::Value envelope;
  envelope["name"] = support::Narrow(settings::FirefoxExtensionId);
  envelope["description"] = "ignored";
  envelope["type"] = "storage";
  envelope["data"] = std::move(document);
  return envelope;
}

// The settings with so many schemes, as the refresh sees them, and as the floors do.
class Subject {
 public:
  Subject(const BrowserMachine& machine, unsigned schemes) : machine_(machine), schemes_(schemes) {
    machine_.Install(schemes_);
    Refresh();
    for (const files::path& file : machine_.DataFiles()) {
      const std::string text = ContentOf(file);
      Json::Value document;
      const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
      Demand(reader->parse(text.data(), text.data() + text.size(), &document, nullptr), "a document is none");
      Demand(document.toStyledString() == text, "the lower floor would write another document");
      documents_.push_back(std::move(document));
    }
    ReadHive();
    for (std::size_t i = 0; i < documents_.size(); ++i) {
      Demand(DocumentOf(root_, i == kFirefox) == documents_[i], "the upper floor would write another document");
    }
  }

  void Measure() {
    MeasureRefresh();
    MeasureFloors();
  }

  [[nodiscard]] unsigned Schemes() const { return schemes_; }

  std::vector<double> refreshes;
  std::vector<double> lowerFloors;
  std::vector<double> upperFloors;

 private:
  static constexpr std::size_t kFirefox = 2;  // Among the documents.

  void MeasureRefresh() {
    machine_.Install(schemes_);
    const Clock::time_point began = Clock::now();
    Refresh();
    refreshes.push_back(MillisecondsSince(began));
  }

  void MeasureFloors() {
    Clock::time_point began = Clock::now();
    ReadHive();
    std::size_t sizes = 0;
    for (const Json::Value& document : documents_) sizes += document.toStyledString().size();
    lowerFloors.push_back(MillisecondsSince(began));

    began = Clock::now();
    ReadHive();
    for (std::size_t i = 0; i < documents_.size(); ++i) {
      sizes -= DocumentOf(root_, i == kFirefox).toStyledString().size();
    }
    upperFloors.push_back(MillisecondsSince(began));
    Demand(sizes == 0, "the floors serialise other documents");
  }

  void ReadHive() {
    root_.Clear();
    Demand(registry::ApplyRegText(HiveText(), registry::HiveId::Machine, root_), "no hive");
  }

  // The quickest way to the bytes of a file.
  [[nodiscard]] std::string HiveText() const {
    const platform::Descriptor hive(open(machine_.HivePath().c_str(), O_RDONLY | O_CLOEXEC));
    return platform::ReadAll(hive.get(), files::file_size(machine_.HivePath())).value_or("");
  }

  const BrowserMachine& machine_;
  const unsigned schemes_;
  registry::Key root_;
  std::vector<Json::Value> documents_;
};

// Tells when a file has been written and closed.
class WrittenFile {
 public:
  explicit WrittenFile(files::path file) : file_(std::move(file)), changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    inotify_add_watch(changes_.get(), file_.c_str(), IN_CLOSE_WRITE);
  }

  // False when nothing has been written by then.
  [[nodiscard]] bool Await(int milliseconds) const {
    pollfd event{.fd = changes_.get(), .events = POLLIN, .revents = 0};
    if (poll(&event, 1, milliseconds) <= 0) return false;
    char drained[4096];
    while (read(changes_.get(), drained, sizeof drained) > 0) {
    }
    return true;
  }

  [[nodiscard]] bool Holds(const std::string& text) const { return ContentOf(file_).find(text) != std::string::npos; }

 private:
  files::path file_;
  platform::Descriptor changes_;
};

constexpr const char16_t* kScheme = u"Software\\Corvane\\Lumenar\\URLRedirection\\scheme0";
constexpr int kUntilNextTry = 200;  // Milliseconds.
constexpr int kBound = 60'000;

// From the change, the writing of the hive included, to the last of the three files.
void MeasureChanges(unsigned runs, const BrowserMachine& machine, std::vector<double>& milliseconds) {
  const bench::Resident resident;
  const WrittenFile file(machine.DataFiles().back());
  // Changes are none for a watcher that does not watch yet.
  unsigned tries = 0;
  do {
    support::SetText(support::Hive::Machine, kScheme, u"remoteItem", support::Wide("try" + std::to_string(++tries)));
  } while (!file.Await(kUntilNextTry));
  for (unsigned run = 0; run <= runs; ++run) {
    const std::string text = "change" + std::to_string(run);
    const Clock::time_point began = Clock::now();
    support::SetText(support::Hive::Machine, kScheme, u"remoteItem", support::Wide(text));
    double elapsed = 0;
    do {
      Demand(file.Await(kBound), "a change did not reach the file");
      elapsed = MillisecondsSince(began);
    } while (!file.Holds("\"" + text + "\""));
    // What the first tries have ordered may have been in the way of the first change.
    if (run > 0) milliseconds.push_back(elapsed);
  }
}

bench::Figures Print(const char* name, unsigned schemes, const std::vector<double>& milliseconds) {
  const bench::Figures figures = bench::FiguresOf(milliseconds);
  std::printf("%-34s %8u %10.2f %10.2f %10.2f\n", name, schemes, figures.median, figures.least, figures.most);
  return figures;
}

// The median of the refresh.
double PrintSubject(const Subject& subject) {
  const double lower = Print("floor, documents ready", subject.Schemes(), subject.lowerFloors).median;
  const double upper = Print("floor, documents made of the hive", subject.Schemes(), subject.upperFloors).median;
  const double refresh = Print("refresh", subject.Schemes(), subject.refreshes).median;
  std::printf("%.2f times the lower floor, %.2f times the upper\n", refresh / lower, refresh / upper);
  return refresh;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 50);
  const BrowserMachine machine;
  Subject few(machine, kFew);
  Subject many(machine, kMany);
  // In blocks: a hive that is read again gives back what was read of it before, which is to be of the same size.
  for (unsigned done = 0; done < runs; done += kRunsOfABlock) {
    for (Subject* const subject : {&few, &many}) {
      for (unsigned run = done; run < std::min(runs, done + kRunsOfABlock); ++run) subject->Measure();
    }
  }
  machine.Install(kFew);
  std::vector<double> changes;
  MeasureChanges(runs, machine, changes);

  std::printf("three data files, %u rules a scheme, milliseconds, %u runs of each, in turn\n", kRulesOfAScheme, runs);
  std::printf("%-34s %8s %10s %10s %10s\n", "", "schemes", "median", "least", "most");
  std::vector<double> medians;
  for (const Subject* const subject : {&few, &many}) medians.push_back(PrintSubject(*subject));
  Print("from a change to the last file", kFew, changes);
  std::printf("%u schemes take %.1f times as long as %u\n", kMany, medians[1] / medians[0], kFew);
  return 0;
}
