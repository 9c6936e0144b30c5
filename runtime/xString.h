// One text in two forms: narrow (UTF-8) and wide.
#pragma once

namespace runtime::StringUtils {

// The wide form is made from the narrow one when it is first asked for. Not for several threads at a time.
class XString {
 public:
  XString() noexcept = default;
  XString(const XString&) = delete;
  XString& operator=(const XString&) = delete;
  virtual ~XString();

  // Copies the text, which is the whole value from now on. Null means an empty text.
  void SetWide(const char16_t* text);
  // The text is the whole value from now on. Owned text comes from malloc and is freed here; other text must outlive
  // this object. Null means an empty text.
  void SetNarrow(const char* text, bool takeOwnership) noexcept;

  // Null when the narrow text cannot be converted for want of memory.
  [[nodiscard]] const char16_t* GetWide() noexcept;

 private:
  void Clear() noexcept;

  const char16_t* wide = u"";
  bool ownsWide = false;
  const char* narrow = "";
  bool ownsNarrow = false;
};

}  // namespace runtime::StringUtils
