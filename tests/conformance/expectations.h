// What a call must give: the documented rules of the component, applied to what the library itself
// answers for the same key and data. The rules are restated here from the user's side, function by
// function, so that a test can hold them against thousands of published inputs.

#ifndef HALVEX_TESTS_CONFORMANCE_EXPECTATIONS_H
#define HALVEX_TESTS_CONFORMANCE_EXPECTATIONS_H

#include <openssl/evp.h>

#include <optional>
#include <string>
#include <vector>

#include "support/component_test.h"

namespace halvex_test {

struct Expectation {
  bool is_null = true;
  std::optional<std::string> bytes;   // the value of a string function, where it is no random one
  std::optional<std::size_t> length;  // of a random value, where it has always the same
  std::vector<Record> records;
};

// The digest behind a name in any letter case; null where the name is unknown. "SHA3-256" is
// SHA3-224.
const EVP_MD *documented_digest(const std::string &name);

Expectation expected_public_key(const std::string &private_pem);
Expectation expected_encryption(const std::string &text, const std::string &pem);
Expectation expected_decryption(const std::string &text, const std::string &pem, bool legacy);
Expectation expected_signature(const std::string &text, const std::string &pem,
                               const std::string &digest_name);
Expectation expected_verification(const std::string &text, const std::string &signature,
                                  const std::string &pem, const std::string &digest_name,
                                  bool legacy);

// The shipped component behind a recording server, and calls that compare results and whole
// records. A call with a key is made in the stand-in server too, and there has to end alike in the
// default library context and in the small one of its thread.
class Conformance_test : public Component_test {
 protected:
  void set_legacy_padding(bool on);

  // Each makes the call, compares the result with the expectation and all records with its records,
  // and forgets the records.
  Row_result expect(const Expectation &expectation, const std::string &function,
                    const std::vector<Argument> &arguments);
  // The result of a call that must succeed without a record.
  std::string value_of(const std::string &function, const std::vector<Argument> &arguments);
  // A call that must be NULL with exactly these records.
  void expect_null(const std::vector<Record> &records, const std::string &function,
                   const std::vector<Argument> &arguments);

  Row_result check_encryption(const std::string &text, const std::string &pem);
  Row_result check_decryption(const std::string &text, const std::string &pem);
  Row_result check_signature(const std::string &text, const std::string &pem,
                             const std::string &digest_name);
  Row_result check_verification(const std::string &text, const std::string &signature,
                                const std::string &pem, const std::string &digest_name);

 private:
  // Makes the call, and in the stand-in server twice.
  Call_result call_everywhere(const std::string &function, const std::vector<Argument> &arguments);

  bool legacy_ = false;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_CONFORMANCE_EXPECTATIONS_H
