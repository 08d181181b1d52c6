#include <algorithm>
#include <array>

#include "dovrin_host/error_log.h"

namespace dovrin_host {
namespace {

// A component passes every text as `const char *` and every number with 64 bits.
constexpr std::array entries{
    Catalogue_entry{
        13915, "HALVEX_VARIABLE_NOT_REGISTERED", "The system variable %s could not be registered.",
        "Uninstall the component that already has a variable of this name, then install "
        "this component again."},
    Catalogue_entry{
        13916, "HALVEX_VARIABLE_NOT_WITHDRAWN", "The system variable %s could not be withdrawn.",
        "Wait until no statement sets the variable, then uninstall the component again."},
    Catalogue_entry{
        13917, "HALVEX_FUNCTION_NOT_REGISTERED", "The function %s could not be registered.",
        "Uninstall the component that already has a function of this name, then install "
        "this component again."},
    Catalogue_entry{
        13918, "HALVEX_FUNCTION_NOT_WITHDRAWN", "The function %s could not be withdrawn.",
        "End the statements that use the function, then uninstall the component again."},
    Catalogue_entry{13919, "HALVEX_NULL_ARGUMENT",
                    "The function %s was given a NULL argument. Expected: %s.",
                    "Give a value for every argument, or filter the rows that have NULL."},
    Catalogue_entry{13920, "HALVEX_UNSUPPORTED_ALGORITHM",
                    "The algorithm '%s' is not supported by the function %s.",
                    "Use the algorithm name RSA, without blanks around it."},
    Catalogue_entry{
        13921, "HALVEX_KEY_LENGTH_OUT_OF_RANGE",
        "The key length %llu is not valid for the function %s with the algorithm %s. It "
        "must be between %lld and %lld bits.",
        "Use a key length in this range, or ask the administrator to raise "
        "component_halvex_encryption.maximum_rsa_key_size."},
    Catalogue_entry{13922, "HALVEX_PRIVATE_KEY_NOT_CREATED",
                    "A private key of %lld bits for the algorithm %s could not be created by the "
                    "function %s.",
                    "Look at the record before this one for the cause."},
    Catalogue_entry{13923, "HALVEX_PUBLIC_KEY_NOT_CREATED",
                    "The public key for the algorithm %s could not be created by the function %s.",
                    "Pass the whole PEM text of an unencrypted RSA private key, with its BEGIN and "
                    "END lines."},
    Catalogue_entry{
        13924, "HALVEX_DATA_TOO_LONG",
        "Data of %llu bytes is too long for the function %s with the algorithm %s and "
        "this key. The limit is %lld bytes.",
        "Use shorter data or a longer key, and check that the key is of the right kind."},
    Catalogue_entry{13925, "HALVEX_NOT_ENCRYPTED",
                    "The function %s with the algorithm %s could not encrypt data of %llu bytes.",
                    "Pass data that is not empty and the PEM text of a public key."},
    Catalogue_entry{
        13926, "HALVEX_NOT_DECRYPTED",
        "The function %s with the algorithm %s could not decrypt data of %llu bytes.",
        "Pass the private key that belongs to the public key which encrypted the data, and "
        "the encrypted bytes unchanged."},
    Catalogue_entry{13927, "HALVEX_NOT_SIGNED",
                    "The function %s with the algorithm %s and the digest type %s could not sign.",
                    "Pass content that is not empty, the PEM text of a private key and a SHA-2 or "
                    "SHA-3 digest type."},
    Catalogue_entry{
        13928, "HALVEX_LIBRARY_ERROR",
        "The function %s with the algorithm %s met an error of the cryptographic library: "
        "%s.",
        "Check that the key is the whole PEM text of an unencrypted key and that it belongs "
        "to the data."},
    Catalogue_entry{13929, "HALVEX_BUFFER_TOO_SMALL",
                    "The function %s with the algorithm %s has room for %llu bytes, but its result "
                    "needs %llu.",
                    "Use a shorter key."},
};

static_assert(std::ranges::is_sorted(entries, {}, &Catalogue_entry::code));

}  // namespace

const Catalogue_entry *find_catalogue_entry(int code) noexcept {
  const auto *const found = std::ranges::lower_bound(entries, code, {}, &Catalogue_entry::code);
  return found != entries.end() && found->code == code ? found : nullptr;
}

}  // namespace dovrin_host
