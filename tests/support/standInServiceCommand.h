// The one kind of message that clients of the service send: a command with a text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace standIn {

struct Command {
  std::uint32_t number = 0;
  std::u16string text;        // Without its terminator.
  std::uint32_t padding = 0;  // What stood in the four bytes behind the text.
};

// A text tells why the payload is none.
[[nodiscard]] std::variant<Command, std::string> DecodeCommand(std::string_view payload);

// "command 2 url https://example.com/", with "padding 0x..." in front of "url" unless that is zero.
[[nodiscard]] std::string Described(const Command& command);

}  // namespace standIn
