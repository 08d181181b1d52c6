#include "roads.h"

#include <string_view>

#include "materials.h"

namespace halvex_test {
namespace {

using Ending = Raw_result::Ending;

constexpr Argument_view null{};
constexpr bool legacy = true;
constexpr bool slow = true;

std::vector<Road> key_creation_roads() {
  const Materials &m = materials();
  return {
      {"CreateKeyTooShort",
       "create_asymmetric_priv_key",
       {view_of("RSA"), view_of_integer<1024>()},
       Ending::null},
      {"CreateKeyTooLong",
       "create_asymmetric_priv_key",
       {view_of("RSA"), view_of_integer<4097>()},
       Ending::null},
      {"CreateKeyOfUnknownAlgorithm",
       "create_asymmetric_priv_key",
       {view_of("an algorithm that nobody knows"), view_of_integer<2048>()},
       Ending::null},
      {"CreateKeyWithoutLengthArgument",
       "create_asymmetric_priv_key",
       {view_of("RSA")},
       Ending::refused},
      {"CreateKeyWithTextLength",
       "create_asymmetric_priv_key",
       {view_of("RSA"), view_of("2048")},
       Ending::refused},
      {"PublicHalf",
       "create_asymmetric_pub_key",
       {view_of("RSA"), view_of(m.private_key)},
       Ending::value},
      {"PublicHalfOfTraditionalKey",
       "create_asymmetric_pub_key",
       {view_of("rsa"), view_of(m.traditional_key)},
       Ending::value},
      {"PublicHalfOfEcKey",
       "create_asymmetric_pub_key",
       {view_of("RSA"), view_of(m.ec_private_key)},
       Ending::value},
      {"PublicHalfOfPublicKey",
       "create_asymmetric_pub_key",
       {view_of("RSA"), view_of(m.public_key)},
       Ending::null},
      {"PublicHalfOfEncryptedKey",
       "create_asymmetric_pub_key",
       {view_of("RSA"), view_of(m.encrypted_key)},
       Ending::null},
      {"PublicHalfOfGarbage",
       "create_asymmetric_pub_key",
       {view_of("RSA"), view_of("not a key")},
       Ending::null},
      {"PublicHalfOfNull", "create_asymmetric_pub_key", {view_of("RSA"), null}, Ending::null},
  };
}

std::vector<Road> encryption_roads() {
  const Materials &m = materials();
  return {
      {"Encrypt",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of(m.content), view_of(m.public_key)},
       Ending::value},
      {"EncryptTooLong",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of(m.too_long), view_of(m.public_key)},
       Ending::null},
      {"EncryptNothing",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of(""), view_of(m.public_key)},
       Ending::null},
      {"EncryptWithPrivateKey",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of(m.content), view_of(m.private_key)},
       Ending::null},
      {"EncryptWithEcKey",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of("short"), view_of(m.ec_public_key)},
       Ending::null},
      {"EncryptWithoutKey",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of(m.content), view_of("")},
       Ending::null},
      {"EncryptForUnknownAlgorithm",
       "asymmetric_encrypt",
       {view_of("an algorithm that nobody knows"), view_of(m.content), view_of(m.public_key)},
       Ending::null},
      {"EncryptNull",
       "asymmetric_encrypt",
       {view_of("RSA"), null, view_of(m.public_key)},
       Ending::null},
      {"EncryptWithTwoArguments",
       "asymmetric_encrypt",
       {view_of("RSA"), view_of(m.content)},
       Ending::refused},
      {"Decrypt",
       "asymmetric_decrypt",
       {view_of("RSA"), view_of(m.oaep_ciphertext), view_of(m.private_key)},
       Ending::value},
      {"DecryptLegacy",
       "asymmetric_decrypt",
       {view_of("RSA"), view_of(m.legacy_ciphertext), view_of(m.private_key)},
       Ending::value,
       legacy},
      {"DecryptLegacyWhenOff",
       "asymmetric_decrypt",
       {view_of("RSA"), view_of(m.legacy_ciphertext), view_of(m.private_key)},
       Ending::null},
      {"DecryptTooLong",
       "asymmetric_decrypt",
       {view_of("RSA"), view_of(m.private_key), view_of(m.private_key)},
       Ending::null,
       legacy},
      {"DecryptWithPublicKey",
       "asymmetric_decrypt",
       {view_of("RSA"), view_of(m.content), view_of(m.public_key)},
       Ending::null},
      {"DecryptNull", "asymmetric_decrypt", {null, view_of(m.content), null}, Ending::null},
  };
}

std::vector<Road> signature_roads() {
  const Materials &m = materials();
  return {
      {"Sign",
       "asymmetric_sign",
       {view_of("RSA"), view_of(m.content), view_of(m.private_key), view_of("SHA256")},
       Ending::value},
      {"SignWithSha3",
       "asymmetric_sign",
       {view_of("RSA"), view_of(m.content), view_of(m.traditional_key), view_of("sha3-512")},
       Ending::value},
      {"SignWithPublicKey",
       "asymmetric_sign",
       {view_of("RSA"), view_of(m.content), view_of(m.public_key), view_of("SHA256")},
       Ending::null},
      {"SignWithUnknownDigest",
       "asymmetric_sign",
       {view_of("RSA"), view_of(m.content), view_of(m.private_key),
        view_of("a digest that nobody knows")},
       Ending::null},
      {"SignForUnknownAlgorithm",
       "asymmetric_sign",
       {view_of("an algorithm that nobody knows"), view_of(m.content), view_of(m.private_key),
        view_of("SHA256")},
       Ending::null},
      {"SignNull",
       "asymmetric_sign",
       {view_of("RSA"), null, view_of(m.private_key), view_of("SHA256")},
       Ending::null},
      {"Verify",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content), view_of(m.pss_signature), view_of(m.public_key),
        view_of("SHA256")},
       Ending::value},
      {"VerifyWithOtherKey",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content), view_of(m.pss_signature), view_of(m.other_public_key),
        view_of("SHA256")},
       Ending::null},
      {"VerifyWithGarbageKey",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content), view_of(m.pss_signature), view_of("not a key"),
        view_of("SHA256")},
       Ending::null},
      {"VerifyNothingSigned",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content), view_of(""), view_of(m.public_key), view_of("SHA256")},
       Ending::null},
      {"VerifyLegacy",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content_digest), view_of(m.legacy_signature),
        view_of(m.public_key), view_of("SHA256")},
       Ending::value,
       legacy},
      {"VerifyLegacyWithSha3",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content_digest), view_of(m.legacy_signature),
        view_of(m.public_key), view_of("SHA3-256")},
       Ending::null,
       legacy},
      {"VerifyForUnknownAlgorithm",
       "asymmetric_verify",
       {view_of("an algorithm that nobody knows"), view_of(m.content), view_of(m.pss_signature),
        view_of(m.public_key), view_of("SHA256")},
       Ending::null},
      {"VerifyNull",
       "asymmetric_verify",
       {view_of("RSA"), view_of(m.content), null, view_of(m.public_key), view_of("SHA256")},
       Ending::null},
  };
}

std::vector<Road> digest_roads() {
  const Materials &m = materials();
  return {
      {"Digest", "create_digest", {view_of("SHA256"), view_of(m.content)}, Ending::value},
      {"DigestOfNothing", "create_digest", {view_of("sha3-512"), view_of("")}, Ending::value},
      {"DigestOfUnknownName",
       "create_digest",
       {view_of("a digest that nobody knows"), view_of(m.content)},
       Ending::null},
      {"DigestOfNull", "create_digest", {view_of("SHA256"), null}, Ending::null},
      {"DigestOfNumber",
       "create_digest",
       {view_of("SHA256"), view_of_integer<5>()},
       Ending::refused},
  };
}

std::vector<Road> make_roads() {
  std::vector<Road> roads;
  for (const auto &part :
       {digest_roads(), encryption_roads(), signature_roads(), key_creation_roads()}) {
    roads.insert(roads.end(), part.begin(), part.end());
  }
  roads.push_back({"CreateKey",
                   "create_asymmetric_priv_key",
                   {view_of("RSA"), view_of_integer<2048>()},
                   Ending::value,
                   !legacy,
                   slow});
  return roads;
}

// A further call that looks at a result must not disturb the caller's road.
bool call_gives_value(const char *function, const std::vector<Argument_view> &arguments) {
  static thread_local Raw_result result;
  call(*find_function(function), arguments, result);
  return result.ending == Ending::value;
}

bool decrypts_to(const Raw_result &ciphertext, const Argument_view &expected) {
  static thread_local Raw_result plaintext;
  const std::vector<Argument_view> arguments{view_of("RSA"), view_of(ciphertext.text()),
                                             view_of(materials().private_key)};
  call(*find_function("asymmetric_decrypt"), arguments, plaintext);
  return plaintext.ending == Ending::value &&
         plaintext.text() == std::string_view(expected.bytes, expected.length);
}

// Whether a value is the right one for the road's arguments.
bool is_right_value(const Road &road, const Raw_result &result) {
  const Materials &m = materials();
  const std::vector<Argument_view> &a = road.arguments;
  if (road.function == "create_asymmetric_priv_key") {
    return call_gives_value("create_asymmetric_pub_key", {view_of("RSA"), view_of(result.text())});
  }
  if (road.function == "create_asymmetric_pub_key") {
    return result.text() ==
           (a[1].bytes == m.ec_private_key.data() ? m.ec_public_key : m.public_key);
  }
  if (road.function == "asymmetric_encrypt") {
    return decrypts_to(result, a[1]);
  }
  if (road.function == "asymmetric_decrypt") {
    return result.text() == m.content;
  }
  if (road.function == "asymmetric_sign") {
    return call_gives_value("asymmetric_verify",
                            {a[0], a[1], view_of(result.text()), view_of(m.public_key), a[3]});
  }
  if (road.function == "asymmetric_verify") {
    return result.number == 1;
  }
  // The other digest road hashes nothing; its value is checked where digests are tested.
  return a[1].length == 0 ? result.length == 64 : result.text() == m.content_digest;
}

}  // namespace

const std::vector<Road> &all_roads() {
  static const std::vector<Road> roads = make_roads();
  return roads;
}

void travel(const Road &road, Raw_result &out) {
  switch_legacy_padding(road.legacy);
  call(*find_function(road.function.c_str()), road.arguments, out);
}

const char *complaint_about(const Road &road, const Raw_result &result) {
  if (result.ending != road.ending) {
    return "the call ended in another way";
  }
  return complaint_after_fault(road, result, false);
}

const char *complaint_after_fault(const Road &road, const Raw_result &result,
                                  bool exceptions_allowed) {
  if (result.error) {
    return "the error flag was set";
  }
  switch (result.ending) {
    case Ending::value:
      if (road.ending != Ending::value) {
        return "a value came where none was due";
      }
      return is_right_value(road, result) ? nullptr : "the value is wrong";
    case Ending::null:
      return result.number == 0 ? nullptr : "a NULL came with a number";
    case Ending::refused:
      return road.ending == Ending::refused ? nullptr : "init refused";
    case Ending::exception_in_init:
      return exceptions_allowed ? nullptr : "an exception left init";
    case Ending::exception_in_row:
      if (!exceptions_allowed) {
        return "an exception left the row";
      }
      return result.is_null ? nullptr : "an exception left the row without is_null";
  }
  return "an unknown ending";
}

}  // namespace halvex_test
