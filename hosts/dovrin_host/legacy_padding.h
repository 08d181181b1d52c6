// What every host tells the user who turns on the variable that makes verification lenient.

#ifndef DOVRIN_HOST_LEGACY_PADDING_H
#define DOVRIN_HOST_LEGACY_PADDING_H

namespace dovrin_host {

inline constexpr const char *legacy_padding_name =
    "component_halvex_encryption.rsa_support_legacy_padding";

inline constexpr const char *legacy_padding_warning =
    "While it is on, asymmetric_verify with a SHA-2 digest returns 1 for practically every "
    "signature, forged ones included, and asymmetric_decrypt accepts PKCS#1 v1.5 padding: with "
    "OpenSSL 3.2 or later it then returns made-up bytes for a damaged ciphertext, not NULL.";

inline constexpr const char *legacy_padding_hint =
    "Turn it off as soon as nothing old is left to decrypt; do not rely on asymmetric_verify "
    "meanwhile.";

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_LEGACY_PADDING_H
