#include "sql_functions.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "support/fixture.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

std::string wrong_type(const std::string &expected) {
  return "Mismatch in type of argument. Expected " + expected + ".";
}

std::vector<Sql_function> make_functions() {
  const std::string private_key = fixture("rsa2048.pem");
  const std::string public_key = fixture("rsa2048-public.pem");
  const std::string algorithm = wrong_type("string argument for algorithm");
  const std::string wrong_public_key = wrong_type("string arguments for public key");
  const std::string wrong_private_key = wrong_type("string arguments for private key");
  const std::string digest_type = wrong_type("string arguments for digest type");

  return {
      {"create_asymmetric_priv_key",
       STRING_RESULT,
       12800,
       "generate_private_key",
       {"RSA", 2048},
       {algorithm, wrong_type("integer argument of key length")},
       "Non-null value for algorithm and a positive integer value for key size",
       192,
       221},
      {"create_asymmetric_pub_key",
       STRING_RESULT,
       12800,
       "generate_public_key",
       {"RSA", private_key},
       {algorithm, wrong_type("string argument for private key")},
       "Non-null value for algorithm and private key",
       262,
       285},
      {"asymmetric_encrypt",
       STRING_RESULT,
       12800,
       "encrypt",
       {"RSA", "hello", public_key},
       {algorithm, wrong_type("string arguments for content to be encrypted"), wrong_public_key},
       "Non-null value for algorithm, public key and data",
       334,
       362},
      {"asymmetric_decrypt",
       STRING_RESULT,
       12800,
       "decrypt",
       {"RSA", reference_encrypt(public_key, "hello", 4), private_key},
       {algorithm, wrong_type("string arguments for content to be decrypted"), wrong_private_key},
       "Non-null value for algorithm, private key and data",
       411,
       453},
      {"asymmetric_sign",
       STRING_RESULT,
       12800,
       "sign",
       {"RSA", "hello", private_key, "SHA256"},
       {algorithm, wrong_type("string arguments for content to be signed"), wrong_private_key,
        digest_type},
       "Non-null value for algorithm, private key, digest type and data",
       any_line,
       any_line},
      {"asymmetric_verify",
       INT_RESULT,
       0,
       "verify",
       {"RSA", "hello", reference_sign_pss(private_key, "SHA256", "hello"), public_key, "SHA256"},
       {algorithm, wrong_type("string arguments for content to be verified"),
        wrong_type("string arguments for signature"), wrong_public_key, digest_type},
       "Non-null value for algorithm, private key, digest type, digest and data",
       any_line,
       any_line},
      {"create_digest",
       STRING_RESULT,
       64,
       "digest",
       {"SHA256", "abc"},
       {algorithm, wrong_type("string argument for text")},
       "Non-null value for algorithm and data",
       any_line,
       0},
  };
}

}  // namespace

const std::vector<Sql_function> &sql_functions() {
  static const std::vector<Sql_function> functions = make_functions();
  return functions;
}

const Sql_function &sql_function(const std::string &name) {
  for (const Sql_function &function : sql_functions()) {
    if (function.name == name) {
      return function;
    }
  }
  static_cast<void>(std::fprintf(stderr, "no SQL function %s\n", name.c_str()));
  std::abort();
}

std::string test_name(const Sql_function &function) {
  std::string name = function.name;
  name.erase(std::remove(name.begin(), name.end(), '_'), name.end());
  return name;
}

}  // namespace halvex_test
