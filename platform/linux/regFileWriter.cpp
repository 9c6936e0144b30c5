#include "platform/linux/regFile.h"

#include <vector>

#include "platform/linux/regFileText.h"
#include "platform/registry.h"

namespace platform::registry {
namespace {

constexpr std::size_t kBytesInLine = 25;

char16_t UnitAt(const std::vector<std::uint8_t>& data, std::size_t index) {
  return static_cast<char16_t>(data[index * 2] | data[index * 2 + 1] << 8);
}

// Whether a text's data say no more than its quoted form does.
bool IsPlainText(const Value& value) {
  if (value.type != REG_SZ || value.data.size() < 2 || value.data.size() % 2 != 0) return false;
  const std::size_t units = value.data.size() / 2 - 1;
  if (UnitAt(value.data, units) != 0) return false;
  for (std::size_t i = 0; i < units; ++i) {
    const char16_t unit = UnitAt(value.data, i);
    if (unit == 0 || unit == u'\n' || unit == u'\r') return false;
    if ((unit & 0xF800) != 0xD800) continue;
    if (unit >= 0xDC00 || i + 1 == units || (UnitAt(value.data, i + 1) & 0xFC00) != 0xDC00) return false;
    ++i;
  }
  return true;
}

class Writer {
 public:
  std::string Write(HiveId hive, const Key& root) {
    text_ = "Windows Registry Editor Version 5.00\n";
    path_ = hive == HiveId::User ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE";
    WriteKey(root);
    return std::move(text_);
  }

 private:
  void WriteKey(const Key& key) {
    // A key with subkeys comes into being with them.
    if (!key.values().empty() || key.subkeys().empty()) {
      text_ += "\n[";
      text_ += path_;
      text_ += "]\n";
    }
    for (const auto& [name, value] : key.values()) WriteValue(name, value);
    for (const auto& [name, subkey] : key.subkeys()) {
      const std::size_t length = path_.size();
      path_ += '\\';
      AppendUtf8(path_, EscapedKeyName(name));
      WriteKey(*subkey);
      path_.resize(length);
    }
  }

  static std::u16string EscapedKeyName(const std::u16string& name) {
    std::u16string escaped;
    for (const char16_t unit : name) {
      if (unit == u'\n' || unit == u'\r' || unit == 0x1B) escaped += char16_t{0x1B};
      escaped += unit == u'\n' ? u'n' : unit == u'\r' ? u'r' : unit;
    }
    return escaped;
  }

  void WriteValue(const std::u16string& name, const Value& value) {
    if (name.empty()) {
      text_ += '@';
    } else {
      WriteQuoted(name);
    }
    text_ += '=';
    if (IsPlainText(value)) {
      std::u16string units;
      for (std::size_t i = 0; i + 1 < value.data.size() / 2; ++i) units += UnitAt(value.data, i);
      WriteQuoted(units);
    } else if (value.type == REG_DWORD && value.data.size() == 4) {
      text_ += "dword:";
      for (std::size_t i = 4; i-- > 0;) WriteByte(value.data[i]);
    } else {
      WriteHex(value);
    }
    text_ += '\n';
  }

  void WriteQuoted(const std::u16string& units) {
    text_ += '"';
    std::u16string escaped;
    escaped.reserve(units.size());
    for (const char16_t unit : units) {
      switch (unit) {
        case u'\\': escaped += u"\\\\"; break;
        case u'"': escaped += u"\\\""; break;
        case u'\n': escaped += u"\\n"; break;
        case u'\r': escaped += u"\\r"; break;
        case u'\0': escaped += u"\\0"; break;
        default: escaped += unit; break;
      }
    }
    AppendUtf8(text_, escaped);
    text_ += '"';
  }

  void WriteHex(const Value& value) {
    text_ += "hex";
    if (value.type != REG_BINARY) {
      text_ += '(';
      WriteType(value.type);
      text_ += ')';
    }
    text_ += ':';
    for (std::size_t i = 0; i < value.data.size(); ++i) {
      if (i > 0) text_ += i % kBytesInLine == 0 ? ",\\\n  " : ",";
      WriteByte(value.data[i]);
    }
  }

  void WriteType(DWORD type) {
    bool leading = true;
    for (int shift = 28; shift >= 0; shift -= 4) {
      const DWORD digit = type >> shift & 0xF;
      leading = leading && digit == 0 && shift > 0;
      if (!leading) text_ += kDigits[digit];
    }
  }

  void WriteByte(std::uint8_t byte) {
    text_ += kDigits[byte >> 4];
    text_ += kDigits[byte & 0xF];
  }

  static constexpr char kDigits[] = "0123456789abcdef";

  std::string text_;
  std::string path_;
};

}  // namespace

std::string WriteRegText(HiveId hive, const Key& root) { return Writer().Write(hive, root); }

}  // namespace platform::registry
