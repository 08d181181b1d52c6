#include <algorithm>
#include <array>

#include "dovrin_host/error_log.h"

namespace dovrin_host {
namespace {

// A component passes every text as `const char *` and every number with 64 bits. A user can choose
// the algorithm and the digest type; everything else comes from the component or from OpenSSL.
constexpr std::array entries{
    Catalogue_entry{
        13915, "HALVEX_VARIABLE_NOT_REGISTERED", "The system variable %s could not be registered.",
        "Uninstall the component that already has a variable of this name, then install "
        "this component again."},
    Catalogue_entry{
        13916, "HALVEX_VARIABLE_NOT_UNREGISTERED",
        "The system variable %s could not be unregistered.",
        "Wait until no statement sets the variable, then uninstall the component again."},
    Catalogue_entry{
        13917, "HALVEX_FUNCTION_NOT_REGISTERED", "The function %s could not be registered.",
        "Uninstall the component that already has a function of this name, then install "
        "this component again."},
    Catalogue_entry{
        13918, "HALVEX_FUNCTION_NOT_UNREGISTERED", "The function %s could not be unregistered.",
        "End the statements that use the function, then uninstall the component again."},
    Catalogue_entry{13919, "HALVEX_NULL_ARGUMENT",
                    "The function %s was given a NULL argument. Expected: %s.",
                    "Give a value for every argument, or filter the rows that have NULL."},
    Catalogue_entry{13920, "HALVEX_UNSUPPORTED_ALGORITHM",
                    "The algorithm '%.32s' is not supported by the function %s.",
                    "Use the algorithm name RSA, without blanks around it."},
    Catalogue_entry{
        13921, "HALVEX_KEY_LENGTH_OUT_OF_RANGE",
        "The key length %llu is not valid for the function %s with the algorithm %.32s. It "
        "must be between %lld and %lld bits.",
        "Use a key length in this range (equal limits leave one; a number near 2^64 was a "
        "negative length), or ask the administrator to raise "
        "component_halvex_encryption.maximum_rsa_key_size."},
    Catalogue_entry{
        13922, "HALVEX_PRIVATE_KEY_NOT_CREATED",
        "A private key of %lld bits for the algorithm %.32s could not be created by the "
        "function %s.",
        "Look at the record before this one for the cause."},
    Catalogue_entry{
        13923, "HALVEX_PUBLIC_KEY_NOT_CREATED",
        "The public key for the algorithm %.32s could not be created by the function %s.",
        "Pass the whole PEM text of an unencrypted RSA private key, with its BEGIN and "
        "END lines."},
    Catalogue_entry{
        13924, "HALVEX_DATA_TOO_LONG",
        "Data of %llu bytes is too long for the function %s with the algorithm %.32s and "
        "this key. The limit is %lld bytes.",
        "Use shorter data or a longer key."},
    Catalogue_entry{
        13925, "HALVEX_NOT_ENCRYPTED",
        "The function %s with the algorithm %.32s could not encrypt data of %llu bytes.",
        "Pass data that is not empty and the PEM text of a public key: encryption needs "
        "the public key, not the private one."},
    Catalogue_entry{
        13926, "HALVEX_NOT_DECRYPTED",
        "The function %s with the algorithm %.32s could not decrypt data of %llu bytes.",
        "Pass the private key that belongs to the public key which encrypted the data, and "
        "the encrypted bytes unchanged."},
    Catalogue_entry{13927, "HALVEX_NOT_SIGNED",
                    "The function %s with the algorithm %.32s and the digest type %.32s could not "
                    "sign.",
                    "Pass content that is not empty, the PEM text of a private key and a SHA-2 or "
                    "SHA-3 digest type."},
    Catalogue_entry{
        13928, "HALVEX_LIBRARY_ERROR",
        "The function %s with the algorithm %.32s met an error of the cryptographic library: "
        "%s.",
        "Check that the key is the whole PEM text of an unencrypted key and that it belongs "
        "to the data."},
    Catalogue_entry{13929, "HALVEX_BUFFER_TOO_SMALL",
                    "The function %s with the algorithm %.32s has room for %llu bytes, but its "
                    "result needs %llu.",
                    "Use a shorter key."},
};

static_assert(std::ranges::is_sorted(entries, {}, &Catalogue_entry::code));

// Where a code means something else in one function.
struct Function_hint {
  int code;
  std::string_view function;
  const char *hint;
};

constexpr std::array function_hints{
    Function_hint{13919, "asymmetric_verify",
                  "Give a value for every argument (algorithm, content, signature, public key and "
                  "digest type), or filter the rows that have NULL."},
    Function_hint{
        13924, "asymmetric_decrypt",
        "Pass the private key, since a public key decrypts nothing, and exactly the bytes "
        "that asymmetric_encrypt gave."},
    Function_hint{
        13928, "asymmetric_verify",
        "The signature does not belong to this content, key and digest type, or the key is "
        "not readable."},
};

}  // namespace

const Catalogue_entry *find_catalogue_entry(int code) noexcept {
  const auto *const found = std::ranges::lower_bound(entries, code, {}, &Catalogue_entry::code);
  return found != entries.end() && found->code == code ? found : nullptr;
}

const char *find_hint(int code, std::string_view function) noexcept {
  const auto *const found = std::ranges::find_if(function_hints, [&](const Function_hint &entry) {
    return entry.code == code && entry.function == function;
  });
  if (found != function_hints.end()) {
    return found->hint;
  }
  const Catalogue_entry *const entry = find_catalogue_entry(code);
  return entry != nullptr ? entry->hint : "";
}

}  // namespace dovrin_host
