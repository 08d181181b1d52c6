#include "support/hexadecimal.h"

#include <cctype>
#include <stdexcept>
#include <string_view>

namespace halvex_test {
namespace {

unsigned digit_value(char digit) {
  const auto place = std::string_view("0123456789abcdef")
                         .find(static_cast<char>(std::tolower(static_cast<unsigned char>(digit))));
  if (place == std::string_view::npos) {
    throw std::runtime_error(std::string("not a hexadecimal digit: ") + digit);
  }
  return static_cast<unsigned>(place);
}

}  // namespace

std::string from_hex(const std::string &digits) {
  std::string bytes;
  unsigned high = 0;
  bool half = false;
  for (const char digit : digits) {
    if (std::isspace(static_cast<unsigned char>(digit)) != 0) {
      continue;
    }
    const unsigned value = digit_value(digit);
    if (half) {
      bytes.push_back(static_cast<char>(high << 4U | value));
    }
    high = value;
    half = !half;
  }
  if (half) {
    throw std::runtime_error("an odd number of hexadecimal digits");
  }
  return bytes;
}

std::string to_hex(const std::string &bytes) {
  std::string digits;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    digits.push_back("0123456789abcdef"[value >> 4U]);
    digits.push_back("0123456789abcdef"[value & 15U]);
  }
  return digits;
}

}  // namespace halvex_test
