// What the stand-in of the service is told: by its command line before it serves, and by lines while it does.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/types.h"

namespace standIn {

// Something to do on a link. The first eight go wrong on purpose.
enum class Deed : std::uint8_t {
  WrongChecksum,
  WrongSequence,
  NoBlocks,
  UnknownType,
  Stop,
  Error,
  Deafen,
  Die,
  Consume,
  AnswerClose,
  Open,
  Send,
  Close,
  Shutdown,
};

struct Order {
  Deed deed;
  std::u16string text;  // Open: the stream's name. Send: what to send.
};

enum class DieWhen : std::uint8_t { Never, BeforeAnswer, AfterAnswer, InTransaction };
enum class CloseAnswer : std::uint8_t { AtOnce, Late, Never };

struct Options {
  std::optional<platform::GUID> endpoint;  // None: that of this session's commands.
  std::uint32_t channelSize = 0x10000;
  std::optional<unsigned> commands;  // How many come in before the service ends by itself.
  bool listenAfterLine = false;
  bool printBlocks = false;
  bool printBytes = false;

  std::int32_t connectStatus = 0;
  bool leaveStatusPreset = false;
  std::uint32_t callStatus = 0;
  std::uint32_t openStatus = 0;  // Of streams that a client opens on a link that it has.
  DieWhen dieWhen = DieWhen::Never;
  bool holdFirstConsumed = false;
  CloseAnswer closeAnswer = CloseAnswer::AtOnce;
  std::vector<Order> onceConnected;  // On each link, once the client's side has come up.
};

// A text tells what is wrong with the arguments.
[[nodiscard]] std::variant<Options, std::string> ParseOptions(const std::vector<std::string>& arguments);
// "send a text", for a line that comes while the service runs. None for what is no order.
[[nodiscard]] std::optional<Order> ParseOrder(std::string_view line);
[[nodiscard]] std::string Usage();

// The endpoint at which clients of a session look for the service of commands.
[[nodiscard]] platform::GUID CommandEndpoint(std::uint32_t session);
// "{AD14170A-EC5E-4088-B123-80B4AE233D0B}"; to be parsed, the braces may be missing.
[[nodiscard]] std::string GuidText(const platform::GUID& guid);
[[nodiscard]] std::optional<platform::GUID> ParseGuid(std::string_view text);

}  // namespace standIn
