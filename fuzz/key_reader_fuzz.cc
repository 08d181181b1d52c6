// The key reader with an arbitrary text.

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ui.h>

#include "bare_server.h"
#include "fields.h"
#include "halvex_encryption/algorithm_implementation.h"
#include "halvex_encryption/rsa_implementation.h"

extern "C" const Dovrin_component *list_components();

namespace {

using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;

void initialise_once() {
  static const bool done = [] {
    UI_set_default_method(UI_null());
    return reliability::connect_services(*list_components()) && list_components()->init() == 0;
  }();
  require(done);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  initialise_once();
  const std::string_view text{reinterpret_cast<const char *>(data), size};
  const Exact_copy pem{text};
  const std::size_t records_before = reliability::submitted_records();
  {
    const halvex_encryption::Key_reader reader{"asymmetric_encrypt", "RSA", pem.data(), pem.size(),
                                               halvex_encryption::rsa::pkcs1_key_reader};
    require(reader.is_private == (text.find("PRIVATE KEY") != std::string_view::npos));
    // A key, or one record that says why not.
    require(reliability::submitted_records() - records_before == (reader.key ? 0U : 1U));
    require(!reader.key || EVP_PKEY_get_size(reader.key.get()) >= 0);
  }
  ERR_clear_error();
  require(reliability::malformed_records() == 0 && reliability::live_server_blocks() == 0);
  return 0;
}
