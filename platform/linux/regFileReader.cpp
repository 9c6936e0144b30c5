#include <charconv>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/regFile.h"
#include "platform/linux/regFileText.h"
#include "platform/registry.h"

namespace platform::registry {
namespace {

struct Line {
  std::string_view text;  // Without its end, and without blanks at either side.
  bool whole = true;      // Has a line end.
};

bool IsBlank(char unit) { return unit == ' ' || unit == '\t' || unit == '\r'; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

Line TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const bool whole = end != std::string_view::npos;
  const Line line{Trimmed(text.substr(0, end)), whole};
  text.remove_prefix(whole ? end + 1 : text.size());
  return line;
}

bool TakeWord(std::string_view& text, std::string_view lowerCaseWord) {
  if (text.size() < lowerCaseWord.size()) return false;
  for (std::size_t i = 0; i < lowerCaseWord.size(); ++i) {
    const char unit = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] + 32) : text[i];
    if (unit != lowerCaseWord[i]) return false;
  }
  text.remove_prefix(lowerCaseWord.size());
  return true;
}

bool IsEndOrComment(std::string_view text) {
  const std::string_view rest = Trimmed(text);
  return rest.empty() || rest.starts_with(';');
}

// Takes a quoted text. Nothing when it does not end on its line.
std::optional<std::u16string> TakeQuoted(std::string_view& text) {
  if (!text.starts_with('"')) return std::nullopt;
  text.remove_prefix(1);
  std::string plain;  // What is ahead of the last escape.
  while (true) {
    const std::size_t quote = text.find('"');
    if (quote == std::string_view::npos) return std::nullopt;
    const std::size_t escape = text.substr(0, quote).find('\\');
    if (escape == std::string_view::npos) {
      const std::string_view rest = text.substr(0, quote);
      text.remove_prefix(quote + 1);
      return FromUtf8(plain.empty() ? rest : plain.append(rest));
    }
    plain.append(text.substr(0, escape));
    switch (const char escaped = text[escape + 1]) {
      case 'n': plain += '\n'; break;
      case 'r': plain += '\r'; break;
      case '0': plain += '\0'; break;
      default: plain += escaped; break;
    }
    text.remove_prefix(escape + 2);
  }
}

std::vector<std::uint8_t> DataOfText(std::u16string_view text) {
  std::vector<std::uint8_t> data;
  data.reserve((text.size() + 1) * 2);
  const auto put = [&](char16_t unit) {
    data.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    data.push_back(static_cast<std::uint8_t>(unit >> 8));
  };
  for (const char16_t unit : text) put(unit);
  put(0);
  return data;
}

// Takes up to eight hexadecimal digits.
std::optional<DWORD> TakeNumber(std::string_view& text, std::size_t& digits) {
  DWORD number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  digits = static_cast<std::size_t>(end - text.data());
  if (error != std::errc() || digits == 0 || digits > 8) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

int DigitOf(char unit) {
  if (unit >= '0' && unit <= '9') return unit - '0';
  const char lower = static_cast<char>(unit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Adds the bytes of one line of hex. False when the line is none. `goesOn` tells whether it ends in a backslash.
bool TakeHexLine(std::string_view line, std::vector<std::uint8_t>& data, bool& goesOn) {
  if (const std::size_t comment = line.find(';'); comment != std::string_view::npos) line = line.substr(0, comment);
  line = Trimmed(line);
  goesOn = line.ends_with('\\');
  if (goesOn) line.remove_suffix(1);
  bool separated = true;
  for (std::size_t i = 0; i < line.size();) {
    if (line[i] == ',' || line[i] == ' ' || line[i] == '\t') {
      separated = separated || line[i] == ',';
      ++i;
      continue;
    }
    const int high = DigitOf(line[i]);
    if (high < 0 || !separated) return false;
    const int low = i + 1 < line.size() ? DigitOf(line[i + 1]) : -1;
    data.push_back(static_cast<std::uint8_t>(low < 0 ? high : high << 4 | low));
    i += low < 0 ? 1 : 2;
    separated = false;
  }
  return true;
}

// Whether a line can only be the begin of something else, so that no hex goes on in it.
bool BeginsAnew(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  return text.starts_with('[') || text.starts_with('"') || text.starts_with('@');
}

class Reader {
 public:
  Reader(std::string_view text, HiveId hive, Key& root) : text_(text), hive_(hive), root_(root) {}

  // Whether anything of the text was about the hive.
  bool ReadAll() {
    while (!text_.empty()) {
      const Line line = TakeLine(text_);
      if (line.text.starts_with('[')) {
        ReadKey(line.text);
      } else if (current_ != nullptr && (line.text.starts_with('"') || line.text.starts_with('@'))) {
        ReadValue(line);
      }
    }
    return touched_;
  }

 private:
  void ReadKey(std::string_view line) {
    current_ = nullptr;
    if (!line.ends_with(']')) return;
    line = line.substr(1, line.size() - 2);
    const bool deletes = line.starts_with('-');
    if (deletes) line.remove_prefix(1);
    if (!TakeRoot(line)) return;
    touched_ = true;
    const std::u16string path = FromUtf8(Unescaped(line));
    if (deletes) {
      root_.RemoveTree(path);
    } else {
      current_ = root_.FindOrCreate(path);
    }
  }

  // Takes the name of the hive's root off a key's path.
  [[nodiscard]] bool TakeRoot(std::string_view& path) const {
    const bool ours = hive_ == HiveId::User ? TakeWord(path, "hkey_current_user") || TakeWord(path, "hkcu")
                                            : TakeWord(path, "hkey_local_machine") || TakeWord(path, "hklm");
    return ours && (path.empty() || path.starts_with('\\'));
  }

  static std::string Unescaped(std::string_view path) {
    std::string plain;
    plain.reserve(path.size());
    for (std::size_t i = 0; i < path.size(); ++i) {
      const char next = path[i] == '\x1B' && i + 1 < path.size() ? path[i + 1] : '\0';
      if (next == 'n' || next == 'r' || next == '\x1B') {
        plain += next == 'n' ? '\n' : next == 'r' ? '\r' : '\x1B';
        ++i;
      } else {
        plain += path[i];
      }
    }
    return plain;
  }

  void ReadValue(Line line) {
    std::u16string name;
    if (line.text.starts_with('@')) {
      line.text.remove_prefix(1);
    } else if (auto quoted = TakeQuoted(line.text)) {
      name = std::move(*quoted);
    } else {
      return;
    }
    line.text = Trimmed(line.text);
    if (!line.text.starts_with('=')) return;
    line.text = Trimmed(line.text.substr(1));
    if (name.size() > kMaxValueName) return;
    if (line.text.starts_with('-') && IsEndOrComment(line.text.substr(1))) {
      current_->RemoveValue(name);
    } else if (auto value = ReadData(line)) {
      current_->SetValue(name, std::move(*value));
    }
  }

  std::optional<Value> ReadData(Line line) {
    if (line.text.starts_with('"')) {
      const auto text = TakeQuoted(line.text);
      if (!text || !IsEndOrComment(line.text)) return std::nullopt;
      return Value{REG_SZ, DataOfText(*text)};
    }
    if (TakeWord(line.text, "dword:")) return ReadNumber(line);
    if (TakeWord(line.text, "hex:")) return ReadHex(REG_BINARY, line);
    if (!TakeWord(line.text, "hex(")) return std::nullopt;
    std::size_t digits = 0;
    const auto type = TakeNumber(line.text, digits);
    if (!type || !TakeWord(line.text, "):")) return std::nullopt;
    return ReadHex(*type, line);
  }

  static std::optional<Value> ReadNumber(Line line) {
    std::size_t digits = 0;
    line.text = Trimmed(line.text);
    const auto number = TakeNumber(line.text, digits);
    if (!number || !IsEndOrComment(line.text) || (!line.whole && digits < 8)) return std::nullopt;
    return Value{REG_DWORD,
                 {static_cast<std::uint8_t>(*number), static_cast<std::uint8_t>(*number >> 8),
                  static_cast<std::uint8_t>(*number >> 16), static_cast<std::uint8_t>(*number >> 24)}};
  }

  std::optional<Value> ReadHex(DWORD type, Line line) {
    Value value{type, {}};
    bool goesOn = false;
    if (!TakeHexLine(line.text, value.data, goesOn)) return std::nullopt;
    while (goesOn) {
      if (text_.empty() || BeginsAnew(text_)) return std::nullopt;
      line = TakeLine(text_);
      if (!TakeHexLine(line.text, value.data, goesOn)) return std::nullopt;
    }
    if (!line.whole) return std::nullopt;
    return value;
  }

  std::string_view text_;
  HiveId hive_;
  Key& root_;
  Key* current_ = nullptr;  // Where values go; null behind a key that is not the hive's.
  bool touched_ = false;
};

}  // namespace

bool ApplyRegText(std::string_view bytes, HiveId hive, Key& root) {
  std::string storage;
  return Reader(TextOfFile(bytes, storage), hive, root).ReadAll();
}

}  // namespace platform::registry
