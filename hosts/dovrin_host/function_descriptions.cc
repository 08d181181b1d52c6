// The one place outside of the component where its functions are listed.

#include <algorithm>

#include "dovrin_host/functions.h"

namespace dovrin_host {
namespace {

using enum Argument_kind;

constexpr std::array creation_of_private_key{algorithm, length_in_bits};
constexpr std::array creation_of_public_key{algorithm, key};
constexpr std::array encryption{algorithm, data, key};
constexpr std::array signing{algorithm, data, key, digest_type};
constexpr std::array verification{algorithm, data, signature, key, digest_type};
constexpr std::array digest{digest_type, data};

// Decryption and verification also depend on rsa_support_legacy_padding, encryption and signing on
// random bytes.
constexpr std::array descriptions{
    Function_description{"asymmetric_decrypt", encryption, Result_kind::binary, false},
    Function_description{"asymmetric_encrypt", encryption, Result_kind::binary, false},
    Function_description{"asymmetric_sign", signing, Result_kind::binary, false},
    Function_description{"asymmetric_verify", verification, Result_kind::integer, false},
    Function_description{"create_asymmetric_priv_key", creation_of_private_key, Result_kind::text,
                         false},
    Function_description{"create_asymmetric_pub_key", creation_of_public_key, Result_kind::text,
                         true},
    Function_description{"create_digest", digest, Result_kind::binary, true},
};

static_assert(std::ranges::is_sorted(descriptions, {}, &Function_description::name));

constexpr Function_description unknown;

}  // namespace

bool Function_description::has(Argument_kind kind) const noexcept {
  return std::ranges::find(arguments, kind) != arguments.end();
}

Item_result Function_description::expected_type_at(std::size_t position) const noexcept {
  return position < arguments.size() ? expected_type(arguments[position]) : STRING_RESULT;
}

bool Function_description::needs_terminator_at(std::size_t position) const noexcept {
  return position >= arguments.size() || !is_read_by_length(arguments[position]);
}

std::span<const Function_description> function_descriptions() noexcept { return descriptions; }

const Function_description &describe_function(std::string_view name) noexcept {
  const auto *const found =
      std::ranges::lower_bound(descriptions, name, {}, &Function_description::name);
  if (found == descriptions.end() || found->name != name) {
    return unknown;
  }
  return *found;
}

}  // namespace dovrin_host
