#include "roads.h"

#include <cstring>

#include "materials.h"

namespace reliability {
namespace {

using Ending = Call_result::Ending;

Argument text(const std::string &value) { return {STRING_RESULT, value.data(), value.size(), 0}; }
Argument text(const char *value) { return {STRING_RESULT, value, std::strlen(value), 0}; }
Argument integer(long long value) { return {INT_RESULT, nullptr, 0, value}; }
constexpr Argument null{};
constexpr bool legacy = true;
constexpr bool slow = true;

std::vector<Road> key_creation_roads() {
  const Materials &m = materials();
  return {
      {"CreateKeyTooShort",
       "create_asymmetric_priv_key",
       {text("RSA"), integer(1024)},
       Ending::null},
      {"CreateKeyTooLong",
       "create_asymmetric_priv_key",
       {text("RSA"), integer(4097)},
       Ending::null},
      {"CreateKeyOfUnknownAlgorithm",
       "create_asymmetric_priv_key",
       {text("an algorithm that nobody knows"), integer(2048)},
       Ending::null},
      {"CreateKeyWithoutLengthArgument",
       "create_asymmetric_priv_key",
       {text("RSA")},
       Ending::refused},
      {"CreateKeyWithTextLength",
       "create_asymmetric_priv_key",
       {text("RSA"), text("2048")},
       Ending::refused},
      {"PublicHalf",
       "create_asymmetric_pub_key",
       {text("RSA"), text(m.private_key)},
       Ending::value},
      {"PublicHalfOfTraditionalKey",
       "create_asymmetric_pub_key",
       {text("rsa"), text(m.traditional_key)},
       Ending::value},
      {"PublicHalfOfEcKey",
       "create_asymmetric_pub_key",
       {text("RSA"), text(m.ec_private_key)},
       Ending::value},
      {"PublicHalfOfPublicKey",
       "create_asymmetric_pub_key",
       {text("RSA"), text(m.public_key)},
       Ending::null},
      {"PublicHalfOfEncryptedKey",
       "create_asymmetric_pub_key",
       {text("RSA"), text(m.encrypted_key)},
       Ending::null},
      {"PublicHalfOfGarbage",
       "create_asymmetric_pub_key",
       {text("RSA"), text("not a key")},
       Ending::null},
      {"PublicHalfOfNull", "create_asymmetric_pub_key", {text("RSA"), null}, Ending::null},
  };
}

std::vector<Road> encryption_roads() {
  const Materials &m = materials();
  return {
      {"Encrypt",
       "asymmetric_encrypt",
       {text("RSA"), text(m.content), text(m.public_key)},
       Ending::value},
      {"EncryptTooLong",
       "asymmetric_encrypt",
       {text("RSA"), text(m.too_long), text(m.public_key)},
       Ending::null},
      {"EncryptNothing",
       "asymmetric_encrypt",
       {text("RSA"), text(""), text(m.public_key)},
       Ending::null},
      {"EncryptWithPrivateKey",
       "asymmetric_encrypt",
       {text("RSA"), text(m.content), text(m.private_key)},
       Ending::null},
      {"EncryptWithEcKey",
       "asymmetric_encrypt",
       {text("RSA"), text("short"), text(m.ec_public_key)},
       Ending::null},
      {"EncryptWithoutKey",
       "asymmetric_encrypt",
       {text("RSA"), text(m.content), text("")},
       Ending::null},
      {"EncryptForUnknownAlgorithm",
       "asymmetric_encrypt",
       {text("an algorithm that nobody knows"), text(m.content), text(m.public_key)},
       Ending::null},
      {"EncryptNull", "asymmetric_encrypt", {text("RSA"), null, text(m.public_key)}, Ending::null},
      {"EncryptWithTwoArguments",
       "asymmetric_encrypt",
       {text("RSA"), text(m.content)},
       Ending::refused},
      {"Decrypt",
       "asymmetric_decrypt",
       {text("RSA"), text(m.oaep_ciphertext), text(m.private_key)},
       Ending::value},
      {"DecryptLegacy",
       "asymmetric_decrypt",
       {text("RSA"), text(m.legacy_ciphertext), text(m.private_key)},
       Ending::value,
       legacy},
      {"DecryptLegacyWhenOff",
       "asymmetric_decrypt",
       {text("RSA"), text(m.legacy_ciphertext), text(m.private_key)},
       Ending::null},
      {"DecryptTooLong",
       "asymmetric_decrypt",
       {text("RSA"), text(m.private_key), text(m.private_key)},
       Ending::null,
       legacy},
      {"DecryptWithPublicKey",
       "asymmetric_decrypt",
       {text("RSA"), text(m.content), text(m.public_key)},
       Ending::null},
      {"DecryptNull", "asymmetric_decrypt", {null, text(m.content), null}, Ending::null},
  };
}

std::vector<Road> signature_roads() {
  const Materials &m = materials();
  return {
      {"Sign",
       "asymmetric_sign",
       {text("RSA"), text(m.content), text(m.private_key), text("SHA256")},
       Ending::value},
      {"SignWithSha3",
       "asymmetric_sign",
       {text("RSA"), text(m.content), text(m.traditional_key), text("sha3-512")},
       Ending::value},
      {"SignWithPublicKey",
       "asymmetric_sign",
       {text("RSA"), text(m.content), text(m.public_key), text("SHA256")},
       Ending::null},
      {"SignWithUnknownDigest",
       "asymmetric_sign",
       {text("RSA"), text(m.content), text(m.private_key), text("a digest that nobody knows")},
       Ending::null},
      {"SignForUnknownAlgorithm",
       "asymmetric_sign",
       {text("an algorithm that nobody knows"), text(m.content), text(m.private_key),
        text("SHA256")},
       Ending::null},
      {"SignNull",
       "asymmetric_sign",
       {text("RSA"), null, text(m.private_key), text("SHA256")},
       Ending::null},
      {"Verify",
       "asymmetric_verify",
       {text("RSA"), text(m.content), text(m.pss_signature), text(m.public_key), text("SHA256")},
       Ending::value},
      {"VerifyWithOtherKey",
       "asymmetric_verify",
       {text("RSA"), text(m.content), text(m.pss_signature), text(m.other_public_key),
        text("SHA256")},
       Ending::null},
      {"VerifyWithGarbageKey",
       "asymmetric_verify",
       {text("RSA"), text(m.content), text(m.pss_signature), text("not a key"), text("SHA256")},
       Ending::null},
      {"VerifyNothingSigned",
       "asymmetric_verify",
       {text("RSA"), text(m.content), text(""), text(m.public_key), text("SHA256")},
       Ending::null},
      {"VerifyLegacy",
       "asymmetric_verify",
       {text("RSA"), text(m.content_digest), text(m.legacy_signature), text(m.public_key),
        text("SHA256")},
       Ending::value,
       legacy},
      {"VerifyLegacyWithSha3",
       "asymmetric_verify",
       {text("RSA"), text(m.content_digest), text(m.legacy_signature), text(m.public_key),
        text("SHA3-256")},
       Ending::null,
       legacy},
      {"VerifyForUnknownAlgorithm",
       "asymmetric_verify",
       {text("an algorithm that nobody knows"), text(m.content), text(m.pss_signature),
        text(m.public_key), text("SHA256")},
       Ending::null},
      {"VerifyNull",
       "asymmetric_verify",
       {text("RSA"), text(m.content), null, text(m.public_key), text("SHA256")},
       Ending::null},
  };
}

std::vector<Road> digest_roads() {
  const Materials &m = materials();
  return {
      {"Digest", "create_digest", {text("SHA256"), text(m.content)}, Ending::value},
      {"DigestOfNothing", "create_digest", {text("sha3-512"), text("")}, Ending::value},
      {"DigestOfUnknownName",
       "create_digest",
       {text("a digest that nobody knows"), text(m.content)},
       Ending::null},
      {"DigestOfNull", "create_digest", {text("SHA256"), null}, Ending::null},
      {"DigestOfNumber", "create_digest", {text("SHA256"), integer(5)}, Ending::refused},
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
                   {text("RSA"), integer(2048)},
                   Ending::value,
                   !legacy,
                   slow});
  return roads;
}

Argument result_text(const Call_result &result) {
  return {STRING_RESULT, result.bytes, result.length, 0};
}

// A further call that looks at a result must not disturb the caller's road.
bool call_gives_value(const char *function, const std::vector<Argument> &arguments) {
  static thread_local Call_result result;
  call(*find_function(function), arguments, result);
  return result.ending == Ending::value;
}

bool decrypts_to(const Call_result &ciphertext, const Argument &expected) {
  static thread_local Call_result plaintext;
  const std::vector<Argument> arguments{text("RSA"), result_text(ciphertext),
                                        text(materials().private_key)};
  call(*find_function("asymmetric_decrypt"), arguments, plaintext);
  return plaintext.ending == Ending::value && plaintext.length == expected.length &&
         std::memcmp(plaintext.bytes, expected.bytes, expected.length) == 0;
}

bool is_text(const Call_result &result, const std::string &expected) {
  return result.length == expected.size() &&
         std::memcmp(result.bytes, expected.data(), expected.size()) == 0;
}

// Whether a value is the right one for the road's arguments.
bool is_right_value(const Road &road, const Call_result &result) {
  const Materials &m = materials();
  const std::vector<Argument> &a = road.arguments;
  if (road.function == "create_asymmetric_priv_key") {
    return call_gives_value("create_asymmetric_pub_key", {text("RSA"), result_text(result)});
  }
  if (road.function == "create_asymmetric_pub_key") {
    return is_text(result, a[1].bytes == m.ec_private_key.data() ? m.ec_public_key : m.public_key);
  }
  if (road.function == "asymmetric_encrypt") {
    return decrypts_to(result, a[1]);
  }
  if (road.function == "asymmetric_decrypt") {
    return is_text(result, m.content);
  }
  if (road.function == "asymmetric_sign") {
    return call_gives_value("asymmetric_verify",
                            {a[0], a[1], result_text(result), text(m.public_key), a[3]});
  }
  if (road.function == "asymmetric_verify") {
    return result.number == 1;
  }
  // The other digest road hashes nothing; its value is checked where digests are tested.
  return a[1].length == 0 ? result.length == 64 : is_text(result, m.content_digest);
}

const char *complaint_about_value(const Road &road, const Call_result &result) {
  if (result.returned_null) {
    return "a null pointer came back without is_null";
  }
  return is_right_value(road, result) ? nullptr : "the value is wrong";
}

const char *complaint_about_null(const Road &road, const Call_result &result) {
  if (road.function == "asymmetric_verify") {
    return result.number == 0 ? nullptr : "a NULL came with a number";
  }
  return result.returned_null ? nullptr : "is_null was set, yet a value came back";
}

}  // namespace

const std::vector<Road> &all_roads() {
  static const std::vector<Road> roads = make_roads();
  return roads;
}

void travel(const Road &road, Call_result &out) {
  static_cast<void>(set_variable("rsa_support_legacy_padding", road.legacy ? 1 : 0));
  call(*find_function(road.function.c_str()), road.arguments, out);
}

const char *complaint_about(const Road &road, const Call_result &result) {
  if (result.ending != road.ending) {
    return "the call ended in another way";
  }
  return complaint_after_fault(road, result, false);
}

const char *complaint_after_fault(const Road &road, const Call_result &result,
                                  bool exceptions_allowed) {
  if (result.error) {
    return "the error flag was set";
  }
  switch (result.ending) {
    case Ending::value:
      return road.ending == Ending::value ? complaint_about_value(road, result)
                                          : "a value came where none was due";
    case Ending::null:
      return complaint_about_null(road, result);
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

}  // namespace reliability
