// Owners of libcrypto's objects, for everything here that calls the library itself.

#ifndef HALVEX_TESTS_SUPPORT_OPENSSL_OWNERS_H
#define HALVEX_TESTS_SUPPORT_OPENSSL_OWNERS_H

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <memory>

namespace halvex_test {

template <auto free_function>
struct Free_with {
  template <typename Object>
  void operator()(Object *object) const noexcept {
    free_function(object);
  }
};

using Bio = std::unique_ptr<BIO, Free_with<BIO_free_all>>;
using Key = std::unique_ptr<EVP_PKEY, Free_with<EVP_PKEY_free>>;
using Key_context = std::unique_ptr<EVP_PKEY_CTX, Free_with<EVP_PKEY_CTX_free>>;
using Digest_context = std::unique_ptr<EVP_MD_CTX, Free_with<EVP_MD_CTX_free>>;

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_OPENSSL_OWNERS_H
