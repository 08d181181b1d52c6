// Keys made by hand: DER elements (ITU-T X.690) and PEM blocks (RFC 7468).

#ifndef HALVEX_TESTS_SUPPORT_DER_H
#define HALVEX_TESTS_SUPPORT_DER_H

#include <cstddef>
#include <string>
#include <string_view>

namespace halvex_test::der {

inline constexpr char integer_tag = '\x02';
inline constexpr char bit_string_tag = '\x03';
inline constexpr char octet_string_tag = '\x04';
inline constexpr char constructed_octet_string_tag = '\x24';
inline constexpr char object_identifier_tag = '\x06';
inline constexpr char sequence_tag = '\x30';

// An element of at most 65535 bytes, which two bytes count even if one would do.
std::string element(char tag, std::string_view content);

// A positive odd integer of that many bits, a multiple of 8.
std::string integer(std::size_t bits);

std::string sequence(std::string_view content);

// The PEM block of a DER text.
std::string pem(std::string_view der, const std::string &label = "PRIVATE KEY");

}  // namespace halvex_test::der

#endif  // HALVEX_TESTS_SUPPORT_DER_H
