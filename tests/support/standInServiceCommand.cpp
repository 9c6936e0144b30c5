#include "tests/support/standInServiceCommand.h"

#include "tests/support/standInServiceText.h"

namespace standIn {

std::variant<Command, std::string> DecodeCommand(std::string_view payload) {
  constexpr std::size_t kAround = 12;  // The number and the length in front, the padding behind.
  if (payload.size() < kAround) return "shorter than its header";
  const std::size_t length = Number32(payload, 4);
  if (length != payload.size() - kAround) return "wrong length";
  if (length < 2 || length % 2 != 0) return "no text";
  std::u16string text = FromLittleEndian(payload.substr(8, length));
  if (text.back() != 0) return "text without its terminator";
  text.pop_back();
  return Command{Number32(payload, 0), std::move(text), Number32(payload, 8 + length)};
}

std::string Described(const Command& command) {
  const std::string padding = command.padding == 0 ? "" : " padding " + Hex(command.padding);
  return "command " + std::to_string(command.number) + padding + " url " + Escaped(command.text);
}

}  // namespace standIn
