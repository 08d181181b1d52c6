// The key reader with an arbitrary text.

#include <openssl/evp.h>

#include "halvex_encryption/algorithm_implementation.h"
#include "halvex_encryption/rsa_implementation.h"
#include "linked_component.h"

namespace {

using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;
using halvex_test::submitted_records;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  halvex_fuzz::initialise_component();
  const std::string_view text{reinterpret_cast<const char *>(data), size};
  const Exact_copy pem{text};
  const std::size_t records_before = submitted_records();
  {
    const halvex_encryption::Key_reader reader{"asymmetric_encrypt", "RSA", pem.data(), pem.size(),
                                               halvex_encryption::rsa::pkcs1_key_reader};
    require(reader.is_private == (text.find("PRIVATE KEY") != std::string_view::npos));
    // A key, or one record with the reason.
    require(submitted_records() - records_before == (reader.key ? 0U : 1U));
    require(!reader.key || EVP_PKEY_get_size(reader.key.get()) >= 0);
  }
  ERR_clear_error();
  halvex_fuzz::check_server();
  return 0;
}
