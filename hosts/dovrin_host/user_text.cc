#include "dovrin_host/user_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace dovrin_host {
namespace {

constexpr std::string_view cut_mark = " <...>";

// One character of a text, or one byte of it that is not UTF-8.
struct Character {
  std::string_view bytes;
  char32_t code_point = 0;
  bool valid = false;
};

struct Code_point_range {
  char32_t first;
  char32_t last;
};

constexpr std::array escaped_ranges{
    Code_point_range{0x00, 0x1f},      // C0 controls
    Code_point_range{0x7f, 0x9f},      // delete and C1 controls
    Code_point_range{0x61c, 0x61c},    // Arabic letter mark
    Code_point_range{0x200e, 0x200f},  // left-to-right and right-to-left mark
    Code_point_range{0x2028, 0x202e},  // line ends, embeddings and overrides
    Code_point_range{0x2066, 0x2069},  // isolates
};

// How many bytes the character has that starts with this one; 1 for a byte that starts none.
std::size_t encoded_length(unsigned char first) {
  if (first >= 0xc2 && first <= 0xdf) {
    return 2;
  }
  if (first >= 0xe0 && first <= 0xef) {
    return 3;
  }
  return first >= 0xf0 && first <= 0xf4 ? 4 : 1;
}

// The smallest code point that needs this many bytes.
constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};

bool is_scalar_value(char32_t code_point, std::size_t length) {
  const bool surrogate = code_point >= 0xd800 && code_point <= 0xdfff;
  return code_point >= smallest[length] && code_point <= 0x10ffff && !surrogate;
}

// The first character of `text`, which is not empty.
Character first_character(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const Character lone_byte{text.substr(0, 1), first, first < 0x80};
  const std::size_t length = encoded_length(first);
  if (length == 1 || text.size() < length) {
    return lone_byte;
  }
  char32_t code_point = first & (0xffU >> (length + 1));
  for (const char byte : text.substr(1, length - 1)) {
    const auto bits = static_cast<unsigned char>(byte);
    if ((bits & 0xc0U) != 0x80U) {
      return lone_byte;
    }
    code_point = (code_point << 6U) | (bits & 0x3fU);
  }
  return is_scalar_value(code_point, length) ? Character{text.substr(0, length), code_point, true}
                                             : lone_byte;
}

bool needs_escape(const Character &character) {
  return !character.valid ||
         std::ranges::any_of(escaped_ranges, [&](const Code_point_range &range) {
           return character.code_point >= range.first && character.code_point <= range.last;
         });
}

void append_escaped(std::string &out, std::string_view bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  for (const char byte : bytes) {
    const auto bits = static_cast<unsigned char>(byte);
    out += "\\x";
    out += digits[bits >> 4U];
    out += digits[bits & 0xfU];
  }
}

}  // namespace

std::string make_excerpt(std::string_view text, std::size_t most) {
  std::string out;
  for (std::size_t count = 0; !text.empty() && count < most; ++count) {
    const Character character = first_character(text);
    if (needs_escape(character)) {
      append_escaped(out, character.bytes);
    } else {
      out += character.bytes;
    }
    text.remove_prefix(character.bytes.size());
  }
  if (!text.empty()) {
    out += cut_mark;
  }
  return out;
}

std::string make_printable(std::string_view text) { return make_excerpt(text, text.size()); }

}  // namespace dovrin_host
