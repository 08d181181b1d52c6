#include "test_data.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "support/fixture.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

Test_data make() {
  Test_data made;
  made.private_key = fixture("rsa2048.pem");
  made.traditional_key = fixture("rsa2048-traditional.pem");
  made.public_key = fixture("rsa2048-public.pem");
  made.other_public_key = fixture("rsa2048-other-public.pem");
  made.encrypted_key = fixture("rsa2048-encrypted.pem");
  made.ec_private_key = fixture("ec-p256.pem");
  made.ec_public_key = fixture("ec-p256-public.pem");
  const Key key = read_private_pem(made.private_key);
  made.content_digest = digest_of(EVP_sha256(), made.content);
  made.oaep_ciphertext = encrypted(key.get(), RSA_PKCS1_OAEP_PADDING, made.content).value();
  made.legacy_ciphertext = encrypted(key.get(), RSA_PKCS1_PADDING, made.content).value();
  made.pss_signature = signed_with_pss(key.get(), EVP_sha256(), made.content).value();
  made.legacy_signature = signed_digest(key.get(), EVP_sha256(), made.content_digest).value();
  return made;
}

}  // namespace

const Test_data &test_data() {
  static const Test_data made = make();
  return made;
}

}  // namespace halvex_test
