#include "tests/support/standInServiceOptions.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>

#include "tests/support/machine.h"

namespace standIn {
namespace {

constexpr std::uint32_t kSmallestChannel = 69;  // Room for one byte of data behind the headers.

const std::map<std::string, Deed, std::less<>> kDeeds = {
    {"wrong-crc", Deed::WrongChecksum},
    {"wrong-sequence", Deed::WrongSequence},
    {"no-blocks", Deed::NoBlocks},
    {"unknown-type", Deed::UnknownType},
    {"stop", Deed::Stop},
    {"error", Deed::Error},
    {"deafen", Deed::Deafen},
    {"die", Deed::Die},
    {"consume", Deed::Consume},
    {"answer-close", Deed::AnswerClose},
    {"open", Deed::Open},
    {"send", Deed::Send},
    {"close", Deed::Close},
    {"shutdown", Deed::Shutdown},
};

const std::map<std::string, DieWhen, std::less<>> kTimesToDie = {
    {"before-answer", DieWhen::BeforeAnswer},
    {"after-answer", DieWhen::AfterAnswer},
    {"in-transaction", DieWhen::InTransaction},
};

bool TakesText(Deed deed) { return deed == Deed::Open || deed == Deed::Send; }

template <class Number>
bool Parse(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

// Walks over the arguments. The first thing that is wrong stays in `fault`.
class Arguments {
 public:
  explicit Arguments(const std::vector<std::string>& all) : all_(all) {}

  // The next switch, without its dashes.
  bool Next() {
    if (!fault.empty() || at_ == all_.size()) return false;
    name = all_[at_++];
    if (!name.starts_with("--")) return Refuse("'" + name + "' is no switch");
    name.erase(0, 2);
    return true;
  }
  std::string Value() {
    if (at_ < all_.size()) return all_[at_++];
    Refuse("--" + name + " needs a value");
    return {};
  }
  template <class Number>
  void Take(Number& number, Number least = std::numeric_limits<Number>::min()) {
    const std::string value = Value();
    if (!Parse(value, number) || number < least) Refuse("--" + name + " does not take '" + value + "'");
  }
  template <class Choice>
  void Take(Choice& choice, const std::map<std::string, Choice, std::less<>>& choices) {
    const std::string value = Value();
    const auto found = choices.find(value);
    if (found == choices.end()) {
      Refuse("--" + name + " does not take '" + value + "'");
    } else {
      choice = found->second;
    }
  }
  bool Refuse(const std::string& why) {
    if (fault.empty()) fault = why;
    return false;
  }

  std::string name;
  std::string fault;

 private:
  const std::vector<std::string>& all_;
  std::size_t at_ = 0;
};

void TakeEndpoint(Arguments& arguments, Options& options) {
  options.endpoint = ParseGuid(arguments.Value());
  if (!options.endpoint) arguments.Refuse("--guid takes a GUID");
}

void TakeOrder(Arguments& arguments, Options& options) {
  const auto deed = kDeeds.find(arguments.name);
  if (deed == kDeeds.end()) {
    arguments.Refuse("unknown switch --" + arguments.name);
  } else {
    const std::string text = TakesText(deed->second) ? arguments.Value() : "";
    options.onceConnected.push_back({deed->second, support::Wide(text)});
  }
}

void TakeSwitch(Arguments& arguments, Options& options) {
  const std::string_view name = arguments.name;
  if (name == "guid") {
    TakeEndpoint(arguments, options);
  } else if (name == "channel-size") {
    arguments.Take(options.channelSize, kSmallestChannel);
  } else if (name == "messages") {
    arguments.Take(options.commands.emplace(), 1u);
  } else if (name == "listen-after-line") {
    options.listenAfterLine = true;
  } else if (name == "blocks") {
    options.printBlocks = true;
  } else if (name == "bytes") {
    options.printBytes = true;
  } else if (name == "refuse") {
    arguments.Take(options.connectStatus);
  } else if (name == "leave-status-preset") {
    options.leaveStatusPreset = true;
  } else if (name == "call-status") {
    arguments.Take(options.callStatus);
  } else if (name == "refuse-open") {
    arguments.Take(options.openStatus);
  } else if (name == "die") {
    arguments.Take(options.dieWhen, kTimesToDie);
  } else if (name == "hold-first-consumed") {
    options.holdFirstConsumed = true;
  } else if (name == "close-answer") {
    arguments.Take(options.closeAnswer, {{"late", CloseAnswer::Late}, {"never", CloseAnswer::Never}});
  } else {
    TakeOrder(arguments, options);
  }
}

}  // namespace

std::variant<Options, std::string> ParseOptions(const std::vector<std::string>& words) {
  Options options;
  Arguments arguments(words);
  while (arguments.Next()) TakeSwitch(arguments, options);
  if (!arguments.fault.empty()) return arguments.fault;
  return options;
}

std::optional<Order> ParseOrder(std::string_view line) {
  const auto end = line.find(' ');
  const auto deed = kDeeds.find(line.substr(0, end));
  if (deed == kDeeds.end() || (end != line.npos) != TakesText(deed->second)) return std::nullopt;
  return Order{deed->second, end == line.npos ? u"" : support::Wide(line.substr(end + 1))};
}

std::string Usage() {
  return R"(usage: standInService [switches]

Stands in for the service that clients on this machine post commands to, and prints a line for each thing that it takes
in. Ends with exit code 0 when its standard input ends; at the line "end", once no link is left.

  --guid GUID              the endpoint (default: that of this session's commands)
  --channel-size N         bytes of each channel, 69 or more (default: 65536)
  --messages N             end by itself once N commands have come in and no link is left
  --listen-after-line      serve only when a first line has come on standard input
  --blocks                 print transactions and blocks too
  --bytes                  print what messages consist of, in hexadecimal

What goes wrong:

  --refuse N               answer connects with this status, and without channels
  --leave-status-preset    answer connects without a status
  --call-status N          end the connect calls themselves with this status
  --refuse-open N          refuse streams that a client opens on its link
  --die WHEN               end at once, with exit code 9; WHEN is before-answer, after-answer (once the client's side of
                           the link has come up) or in-transaction (a part is taken in, nothing said)
  --hold-first-consumed    do not say that the client may send, until the order "consume"
  --close-answer WHEN      answer a Close late (at the order "answer-close") or never

Orders. As a switch, "--send TEXT", an order is carried out on each link as soon as the client's side has come up. As a
line on standard input, "send TEXT", it is carried out at once on every link. A stream is the newest one of the link.

  wrong-crc wrong-sequence no-blocks unknown-type
                           send a transaction that is wrong in just this
  stop | error             set this event; the link is served on
  deafen                   take in nothing more
  die                      end at once, with exit code 9
  consume                  say that the client may send
  answer-close             answer every Close that waits for it
  open NAME                open a stream towards the client
  send TEXT                send this as a message (UTF-8) over a stream
  close | shutdown         end a stream in either way
)";
}

platform::GUID CommandEndpoint(std::uint32_t session) {
  return {~session, 0xEC5E, 0x4088, {0xB1, 0x23, 0x80, 0xB4, 0xAE, 0x23, 0x3D, 0x0B}};
}

std::string GuidText(const platform::GUID& guid) {
  const auto& tail = guid.Data4;
  std::array<char, 39> text{};
  std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, tail[0], tail[1], tail[2], tail[3], tail[4],
                tail[5], tail[6], tail[7]);
  return text.data();
}

std::optional<platform::GUID> ParseGuid(std::string_view text) {
  if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
  if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-') return std::nullopt;
  platform::GUID guid{};
  std::string tail(text.substr(19, 4));
  tail += text.substr(24);
  bool good = Parse(text.substr(0, 8), guid.Data1, 16) && Parse(text.substr(9, 4), guid.Data2, 16) &&
              Parse(text.substr(14, 4), guid.Data3, 16);
  for (std::size_t i = 0; i < guid.Data4.size(); ++i) {
    good = good && Parse(std::string_view(tail).substr(2 * i, 2), guid.Data4[i], 16);
  }
  return good ? std::optional(guid) : std::nullopt;
}

}  // namespace standIn
