// What a key argument may ask of OpenSSL, which computes with whatever numbers a key holds: signing
// with a prime factor of 46,000 bits takes minutes, in which nothing can interrupt the row.

#ifndef DOVRIN_HOST_KEY_LIMITS_H
#define DOVRIN_HOST_KEY_LIMITS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace dovrin_host {

// The longest key argument, in bytes: RSA keys of 16384 bits fit.
inline constexpr std::size_t longest_key = 16384;

// The longest number in a key, in bits.
inline constexpr std::size_t longest_key_number = 16384;

// How the PEM text `key` exceeds a limit, as words for "The function was given ..."; empty if it
// does not. A text that is no key exceeds nothing but the length. The thread's OpenSSL error queue
// is as before afterwards. Any thread.
std::string describe_excess(std::string_view key);

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_KEY_LIMITS_H
