// The names of kernel objects: one file for each name, in one folder of the machine.
//
// Whoever has the object open shares a lock on the file, which is the name's existence, and goes with the process
// however that ends. The file tells the kind of its object.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/descriptor.h"

namespace platform::namedObjects {

enum class Kind : char { Mutex = 'M', AutoResetEvent = 'A', ManualResetEvent = 'E' };

// The file's path for that name; "Local\" and "Global\" are one scope. Empty, with the last error set, when no object
// can bear the name.
[[nodiscard]] std::string PathOf(std::u16string_view name);

struct Opened {
  Descriptor file;
  bool isNew;
  Kind kind;  // That of the object that there is.
};

// Opens or makes the file of a name. `make` runs for a new one, while nobody else can open it, and says whether it went
// well. Nothing, with the last error set, on failure.
template <class Make>
[[nodiscard]] std::optional<Opened> Open(const std::string& path, Kind kind, const Make& make);

// Opens the file of a name that somebody holds. Nothing, with ERROR_FILE_NOT_FOUND, when nobody does.
[[nodiscard]] std::optional<Opened> OpenExisting(const std::string& path) noexcept;

namespace detail {
enum class Existence : std::uint8_t { New, Existed, Failed };
[[nodiscard]] Existence Join(const Descriptor& file) noexcept;
// Lets others in.
[[nodiscard]] bool Share(const Descriptor& file) noexcept;
[[nodiscard]] Descriptor OpenFile(const std::string& path) noexcept;
[[nodiscard]] bool WriteKind(const Descriptor& file, Kind kind) noexcept;
[[nodiscard]] std::optional<Kind> ReadKind(const Descriptor& file) noexcept;
}  // namespace detail

}  // namespace platform::namedObjects

template <class Make>
std::optional<platform::namedObjects::Opened> platform::namedObjects::Open(const std::string& path, Kind kind,
                                                                           const Make& make) {
  Descriptor file = detail::OpenFile(path);
  const auto existence = file ? detail::Join(file) : detail::Existence::Failed;
  if (existence == detail::Existence::Failed) return std::nullopt;
  if (existence == detail::Existence::New) {
    if (!make(file) || !detail::WriteKind(file, kind) || !detail::Share(file)) return std::nullopt;
    return Opened{std::move(file), true, kind};
  }
  const auto found = detail::ReadKind(file);
  if (!found) return std::nullopt;
  return Opened{std::move(file), false, *found};
}
