// The OpenSSL calls that one row of each SQL function cannot do without, made directly: what rows
// are measured against. Keys are PEM texts, read anew by each call. Every function aborts if a call
// fails: a measurement of something other than success is worth nothing.

#ifndef HALVEX_TESTS_SUPPORT_OPENSSL_ROWS_H
#define HALVEX_TESTS_SUPPORT_OPENSSL_ROWS_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace halvex_test {

using Row_buffer = std::array<unsigned char, 4096>;

// Each returns the number of bytes that it has written to `out`.
std::size_t digest_row(std::string_view content, Row_buffer &out);  // SHA256
std::size_t encrypt_row(const std::string &public_key, std::string_view content, Row_buffer &out);
std::size_t decrypt_row(const std::string &private_key, std::string_view ciphertext,
                        Row_buffer &out);
std::size_t sign_row(const std::string &private_key, std::string_view content,
                     Row_buffer &out);  // SHA256

void verify_row(const std::string &public_key, std::string_view content,
                std::string_view signature);  // SHA256
void public_key_row(const std::string &private_key);
void create_key_row(int bits);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_OPENSSL_ROWS_H
