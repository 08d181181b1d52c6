#include "support/expected_records.h"

#include <map>

namespace halvex_test {
namespace {

using std::to_string;

long long line_of_short_buffer(const std::string &operation) {
  static const std::map<std::string, long long> lines{
      {"get_key", 168}, {"encrypt", 258}, {"decrypt", 318}, {"sign", any_line}};
  return lines.at(operation);
}

}  // namespace

Record variable_not_registered(const std::string &name) {
  return error_record(13915, 41, "utilities", "add", {name});
}

Record variable_not_unregistered(const std::string &name) {
  return error_record(13916, 58, "utilities", "unregister", {name});
}

Record function_not_registered(const std::string &name) {
  return error_record(13917, 83, "utilities", "add_scalar", {name});
}

Record function_not_unregistered(const std::string &name) {
  return error_record(13918, 98, "utilities", "unregister", {name});
}

Record key_length_rejected(const std::string &length, int maximum, const std::string &function) {
  return error_record(13921, 69, "rsa_implementation", "validate",
                      {length, function, "RSA", "2048", to_string(maximum)});
}

Record key_creation_failed(long long length) {
  return error_record(13922, 213, "functions", "generate_private_key",
                      {to_string(length), "RSA", "create_asymmetric_priv_key"});
}

Record public_key_failed() {
  return error_record(13923, 277, "functions", "generate_public_key",
                      {"RSA", "create_asymmetric_pub_key"});
}

Record data_too_long(const std::string &function, unsigned long long length, long long limit) {
  return error_record(13924, 202, "rsa_implementation", "supported_length",
                      {to_string(length), function, "RSA", to_string(limit)});
}

Record encryption_failed(unsigned long long data_length) {
  return error_record(13925, 354, "functions", "encrypt",
                      {"asymmetric_encrypt", "RSA", to_string(data_length)});
}

Record decryption_failed(unsigned long long data_length) {
  return error_record(13926, 435, "functions", "operator()",
                      {"asymmetric_decrypt", "RSA", to_string(data_length)});
}

Record signing_failed(const std::string &digest) {
  return error_record(13927, any_line, "functions", "sign", {"asymmetric_sign", "RSA", digest});
}

Record buffer_too_small(const std::string &operation, const std::string &function,
                        unsigned long long size, unsigned long long needed) {
  return error_record(13929, line_of_short_buffer(operation), "algorithm_implementation", operation,
                      {function, "RSA", to_string(size), to_string(needed)});
}

}  // namespace halvex_test
