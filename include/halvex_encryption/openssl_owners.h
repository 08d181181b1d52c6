// Owners of OpenSSL's objects, for the component and for what calls OpenSSL beside it.

#ifndef HALVEX_ENCRYPTION_OPENSSL_OWNERS_H
#define HALVEX_ENCRYPTION_OPENSSL_OWNERS_H

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <memory>

namespace halvex_encryption {

// Calls one OpenSSL free function. Stateless, so the pointers below stay one word wide.
template <auto free_function>
struct Free_with {
  template <typename Object>
  void operator()(Object *object) const noexcept {
    free_function(object);
  }
};

using Bio_ptr = std::unique_ptr<BIO, Free_with<BIO_free>>;
using Pkey_ptr = std::unique_ptr<EVP_PKEY, Free_with<EVP_PKEY_free>>;
using Pkey_ctx_ptr = std::unique_ptr<EVP_PKEY_CTX, Free_with<EVP_PKEY_CTX_free>>;
using Md_ctx_ptr = std::unique_ptr<EVP_MD_CTX, Free_with<EVP_MD_CTX_free>>;
static_assert(sizeof(Pkey_ptr) == sizeof(EVP_PKEY *));

}  // namespace halvex_encryption

#endif  // HALVEX_ENCRYPTION_OPENSSL_OWNERS_H
