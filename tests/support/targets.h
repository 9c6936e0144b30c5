// What the systems that the tests run on differ in, where the program's promise leaves room for it.
#pragma once

namespace support {

// Whether the user's hive has a 32-bit view of its own. The machine folder keeps the views apart; Windows, and Wine
// with it, has one Software key of the user for both.
extern const bool kUserHas32BitView;

// Whether the registry stores the NUL that it finds behind a text that is passed without one, as Windows does.
extern const bool kStoresNulBehindText;

}  // namespace support
