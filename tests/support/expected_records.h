// The records of the component by what they report, whole, as the tests expect them.

#ifndef HALVEX_TESTS_SUPPORT_EXPECTED_RECORDS_H
#define HALVEX_TESTS_SUPPORT_EXPECTED_RECORDS_H

#include <string>

#include "support/record.h"

namespace halvex_test {

// What the server refused: to register or to unregister a variable, by its name with the
// component's, or a function.
Record variable_not_registered(const std::string &name);
Record variable_not_unregistered(const std::string &name);
Record function_not_registered(const std::string &name);
Record function_not_unregistered(const std::string &name);

// `length` as the record shows it, with the maximum in force.
Record key_length_rejected(const std::string &length, int maximum,
                           const std::string &function = "create_asymmetric_priv_key");
Record key_creation_failed(long long length);
Record public_key_failed();
// Data or a ciphertext of `length` bytes, where the key allows `limit`.
Record data_too_long(const std::string &function, unsigned long long length, long long limit);
Record encryption_failed(unsigned long long data_length);
Record decryption_failed(unsigned long long data_length);
Record signing_failed(const std::string &digest = "SHA256");
// A buffer of `size` bytes where `operation` ("encrypt", "decrypt", "sign" or "get_key") of the
// named SQL function needs more.
Record buffer_too_small(const std::string &operation, const std::string &function,
                        unsigned long long size, unsigned long long needed);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_EXPECTED_RECORDS_H
