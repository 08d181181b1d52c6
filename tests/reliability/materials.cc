#include "materials.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "support/fixture.h"
#include "support/openssl_library.h"

namespace reliability {
namespace {

Materials make() {
  using halvex_test::encrypted;
  using halvex_test::fixture;
  Materials made;
  made.private_key = fixture("rsa2048.pem");
  made.traditional_key = fixture("rsa2048-traditional.pem");
  made.public_key = fixture("rsa2048-public.pem");
  made.other_public_key = fixture("rsa2048-other-public.pem");
  made.encrypted_key = fixture("rsa2048-encrypted.pem");
  made.ec_private_key = fixture("ec-p256.pem");
  made.ec_public_key = fixture("ec-p256-public.pem");
  const halvex_test::Key key = halvex_test::read_private_pem(made.private_key);
  made.content_digest = halvex_test::digest_of(EVP_sha256(), made.content);
  made.oaep_ciphertext = encrypted(key.get(), RSA_PKCS1_OAEP_PADDING, made.content).value();
  made.legacy_ciphertext = encrypted(key.get(), RSA_PKCS1_PADDING, made.content).value();
  made.pss_signature = halvex_test::signed_with_pss(key.get(), EVP_sha256(), made.content).value();
  made.legacy_signature =
      halvex_test::signed_digest(key.get(), EVP_sha256(), made.content_digest).value();
  return made;
}

}  // namespace

const Materials &materials() {
  static const Materials made = make();
  return made;
}

}  // namespace reliability
