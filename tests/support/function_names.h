// The names of the SQL functions for RSA keys, for tests that name them often.

#ifndef HALVEX_TESTS_SUPPORT_FUNCTION_NAMES_H
#define HALVEX_TESTS_SUPPORT_FUNCTION_NAMES_H

namespace halvex_test {

inline constexpr const char *create = "create_asymmetric_priv_key";
inline constexpr const char *derive = "create_asymmetric_pub_key";
inline constexpr const char *encrypt = "asymmetric_encrypt";
inline constexpr const char *decrypt = "asymmetric_decrypt";
inline constexpr const char *sign = "asymmetric_sign";
inline constexpr const char *verify = "asymmetric_verify";

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_FUNCTION_NAMES_H
