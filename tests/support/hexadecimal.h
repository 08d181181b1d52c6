// Bytes as hexadecimal digits.

#ifndef HALVEX_TESTS_SUPPORT_HEXADECIMAL_H
#define HALVEX_TESTS_SUPPORT_HEXADECIMAL_H

#include <string>

namespace halvex_test {

// The bytes that the digits stand for, in either letter case, white space passed over. Throws
// std::runtime_error at any other character and at an odd number of digits.
std::string from_hex(const std::string &digits);
// Two digits for each byte, in lower case.
std::string to_hex(const std::string &bytes);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_HEXADECIMAL_H
