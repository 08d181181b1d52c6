// Text that a user chose, made fit for records and error sentences: valid UTF-8, without characters
// that steer a terminal or reorder a line, and too short to give away a key.

#ifndef DOVRIN_HOST_USER_TEXT_H
#define DOVRIN_HOST_USER_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace dovrin_host {

// How many characters of a text that a user chose a record or an error sentence contains.
inline constexpr std::size_t excerpt_characters = 32;

// The first `most` characters of `text`, any bytes, followed by " <...>" if there are more. Control
// characters, bidirectional marks and bytes that are not UTF-8 are written as \xNN, byte by byte; a
// byte that is not UTF-8 counts as one character. Throws std::bad_alloc only.
std::string make_excerpt(std::string_view text, std::size_t most = excerpt_characters);

// All of `text` with the same escapes. Throws std::bad_alloc only.
std::string make_printable(std::string_view text);

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_USER_TEXT_H
