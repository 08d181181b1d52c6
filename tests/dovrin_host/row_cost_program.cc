// Rows of the stand-in server and of OpenSSL alone, for callgrind, each kind under a label of its
// own: row_cost_test compares their instructions. An argument selects a deliberate regression,
// which the test must notice: "copy" or "fetch".

#include <openssl/evp.h>
#include <valgrind/callgrind.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dovrin_host/row_context.h"
#include "dovrin_host/server.h"
#include "support/fixture.h"
#include "support/openssl_rows.h"

namespace {

using dovrin_host::Argument;
using dovrin_host::Function_instance;
using dovrin_host::Row_result;
using dovrin_host::Server;
using halvex_test::Row_buffer;

std::string_view regression;

void stop_unless(bool holds, const std::string &what) {
  if (!holds) {
    std::cerr << what << '\n';
    std::exit(EXIT_FAILURE);
  }
}

// Counts the instructions of `rows` rows after one that has filled every cache.
void count(const std::string &label, int rows, const std::function<void()> &row) {
  const std::string name = std::to_string(rows) + " " + label;
  row();
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  for (int i = 0; i < rows; ++i) {
    row();
  }
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  CALLGRIND_STOP_INSTRUMENTATION;
}

// What a careless change would add to each row.
void regress(const std::vector<Argument> &arguments) {
  if (regression == "copy") {
    const std::string copy{arguments.back().bytes()};
    stop_unless(copy.c_str() != nullptr, "no copy");
  } else if (regression == "fetch") {
    EVP_MD_free(EVP_MD_fetch(nullptr, "SHA256", nullptr));
  }
}

// Returns the value of the last row.
std::string count_host(const std::string &function, int rows,
                       const std::vector<Argument> &arguments, const std::string &kind = "") {
  const std::vector<Item_result> types(arguments.size(), STRING_RESULT);
  auto opened = Server::instance().open_function(function, types);
  stop_unless(opened.ok(), opened.message());
  const std::unique_ptr<Function_instance> instance = std::move(opened).value();
  std::string value;
  count(function + kind + " host", rows, [&] {
    regress(arguments);
    const Row_result row = instance->row(arguments);
    stop_unless(row.kind == Row_result::Kind::string || row.kind == Row_result::Kind::integer,
                function + " gave no value");
    value = row.text;
  });
  return value;
}

}  // namespace

int main(int argc, char **argv) {
  regression = argc > 1 ? argv[1] : "";
  const auto lease = Server::instance().acquire(COMPONENT_FILE);
  stop_unless(lease.ok(), lease.message());
  // The same work on both sides; a small context would make the hosts' rows the cheaper ones.
  dovrin_host::set_small_context_use(dovrin_host::Small_context_use::never);

  const std::string private_key = halvex_test::fixture("rsa2048.pem");
  const std::string public_key = halvex_test::fixture("rsa2048-public.pem");
  const std::string text = "What is signed, encrypted and hashed in every row: 64 bytes ....";
  const auto rsa = Argument::terminated_string("RSA");
  const auto sha256 = Argument::terminated_string("SHA256");
  const auto content = Argument::string(text);
  const auto private_pem = Argument::string(private_key);
  const auto public_pem = Argument::string(public_key);
  Row_buffer out{};

  // Random numbers make single rows with a private key differ by a thousandth.
  constexpr int few = 4;
  constexpr int many = 20;

  count_host("create_digest", many, {sha256, content});
  count("create_digest openssl", many, [&] { halvex_test::digest_row(text, out); });

  const std::string long_text(65536, 'x');
  count_host("create_digest", few, {sha256, Argument::string(long_text)}, " of 64 KiB");
  count("create_digest of 64 KiB openssl", few, [&] { halvex_test::digest_row(long_text, out); });
  if (!regression.empty()) {
    return EXIT_SUCCESS;
  }

  count_host("create_asymmetric_pub_key", few, {rsa, private_pem});
  count("create_asymmetric_pub_key openssl", few,
        [&] { halvex_test::public_key_row(private_key); });

  const std::string ciphertext = count_host("asymmetric_encrypt", few, {rsa, content, public_pem});
  count("asymmetric_encrypt openssl", few,
        [&] { halvex_test::encrypt_row(public_key, text, out); });

  count_host("asymmetric_decrypt", few, {rsa, Argument::string(ciphertext), private_pem});
  count("asymmetric_decrypt openssl", few,
        [&] { halvex_test::decrypt_row(private_key, ciphertext, out); });

  const std::string signature =
      count_host("asymmetric_sign", few, {rsa, content, private_pem, sha256});
  count("asymmetric_sign openssl", few, [&] { halvex_test::sign_row(private_key, text, out); });

  count_host("asymmetric_verify", few,
             {rsa, content, Argument::string(signature), public_pem, sha256});
  count("asymmetric_verify openssl", few,
        [&] { halvex_test::verify_row(public_key, text, signature); });
  return EXIT_SUCCESS;
}
