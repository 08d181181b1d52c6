#include "scenarios.h"

#include <string_view>

#include "support/function_names.h"
#include "test_data.h"

namespace halvex_test {
namespace {

using Ending = Raw_result::Ending;

constexpr const char *digest = "create_digest";

constexpr Argument_view null{};
constexpr Argument_view rsa{"RSA"};
constexpr Argument_view sha256{"SHA256"};
constexpr Argument_view unknown_name{"a name that nobody knows"};
constexpr bool legacy = true;
constexpr bool slow = true;

std::vector<Scenario> key_creation_scenarios() {
  const Test_data &m = test_data();
  return {
      {"CreateKeyTooShort", create, {rsa, integer<1024>()}, Ending::null},
      {"CreateKeyTooLong", create, {rsa, integer<4097>()}, Ending::null},
      {"CreateKeyOfUnknownAlgorithm", create, {unknown_name, integer<2048>()}, Ending::null},
      {"CreateKeyWithoutLengthArgument", create, {rsa}, Ending::rejected},
      {"CreateKeyWithTextLength", create, {rsa, "2048"}, Ending::rejected},
      {"PublicHalf", derive, {rsa, m.private_key}, Ending::value},
      {"PublicHalfOfTraditionalKey", derive, {"rsa", m.traditional_key}, Ending::value},
      {"PublicHalfOfEcKey", derive, {rsa, m.ec_private_key}, Ending::value},
      {"PublicHalfOfPublicKey", derive, {rsa, m.public_key}, Ending::null},
      {"PublicHalfOfEncryptedKey", derive, {rsa, m.encrypted_key}, Ending::null},
      {"PublicHalfOfGarbage", derive, {rsa, "not a key"}, Ending::null},
      {"PublicHalfOfNull", derive, {rsa, null}, Ending::null},
  };
}

std::vector<Scenario> encryption_scenarios() {
  const Test_data &m = test_data();
  return {
      {"Encrypt", encrypt, {rsa, m.content, m.public_key}, Ending::value},
      {"EncryptTooLong", encrypt, {rsa, m.too_long, m.public_key}, Ending::null},
      {"EncryptNothing", encrypt, {rsa, "", m.public_key}, Ending::null},
      {"EncryptWithPrivateKey", encrypt, {rsa, m.content, m.private_key}, Ending::null},
      {"EncryptWithEcKey", encrypt, {rsa, "short", m.ec_public_key}, Ending::null},
      {"EncryptWithoutKey", encrypt, {rsa, m.content, ""}, Ending::null},
      {"EncryptForUnknownAlgorithm",
       encrypt,
       {unknown_name, m.content, m.public_key},
       Ending::null},
      {"EncryptNull", encrypt, {rsa, null, m.public_key}, Ending::null},
      {"EncryptWithTwoArguments", encrypt, {rsa, m.content}, Ending::rejected},
      {"Decrypt", decrypt, {rsa, m.oaep_ciphertext, m.private_key}, Ending::value},
      {"DecryptLegacy", decrypt, {rsa, m.legacy_ciphertext, m.private_key}, Ending::value, legacy},
      {"DecryptLegacyWhenOff", decrypt, {rsa, m.legacy_ciphertext, m.private_key}, Ending::null},
      {"DecryptTooLong", decrypt, {rsa, m.private_key, m.private_key}, Ending::null, legacy},
      {"DecryptWithPublicKey", decrypt, {rsa, m.content, m.public_key}, Ending::null},
      {"DecryptNull", decrypt, {null, m.content, null}, Ending::null},
  };
}

std::vector<Scenario> signature_scenarios() {
  const Test_data &m = test_data();
  return {
      {"Sign", sign, {rsa, m.content, m.private_key, sha256}, Ending::value},
      {"SignWithSha3", sign, {rsa, m.content, m.traditional_key, "sha3-512"}, Ending::value},
      {"SignWithPublicKey", sign, {rsa, m.content, m.public_key, sha256}, Ending::null},
      {"SignWithUnknownDigest", sign, {rsa, m.content, m.private_key, unknown_name}, Ending::null},
      {"SignForUnknownAlgorithm",
       sign,
       {unknown_name, m.content, m.private_key, sha256},
       Ending::null},
      {"SignNull", sign, {rsa, null, m.private_key, sha256}, Ending::null},
      {"Verify", verify, {rsa, m.content, m.pss_signature, m.public_key, sha256}, Ending::value},
      {"VerifyWithOtherKey",
       verify,
       {rsa, m.content, m.pss_signature, m.other_public_key, sha256},
       Ending::null},
      {"VerifyWithGarbageKey",
       verify,
       {rsa, m.content, m.pss_signature, "not a key", sha256},
       Ending::null},
      {"VerifyNothingSigned", verify, {rsa, m.content, "", m.public_key, sha256}, Ending::null},
      {"VerifyLegacy",
       verify,
       {rsa, m.content_digest, m.legacy_signature, m.public_key, sha256},
       Ending::value,
       legacy},
      {"VerifyLegacyWithSha3",
       verify,
       {rsa, m.content_digest, m.legacy_signature, m.public_key, "SHA3-256"},
       Ending::null,
       legacy},
      {"VerifyForUnknownAlgorithm",
       verify,
       {unknown_name, m.content, m.pss_signature, m.public_key, sha256},
       Ending::null},
      {"VerifyNull", verify, {rsa, m.content, null, m.public_key, sha256}, Ending::null},
  };
}

std::vector<Scenario> digest_scenarios() {
  const Test_data &m = test_data();
  return {
      {"Digest", digest, {sha256, m.content}, Ending::value},
      {"DigestOfNothing", digest, {"sha3-512", ""}, Ending::value},
      {"DigestOfUnknownName", digest, {unknown_name, m.content}, Ending::null},
      {"DigestOfNull", digest, {sha256, null}, Ending::null},
      {"DigestOfNumber", digest, {sha256, integer<5>()}, Ending::rejected},
  };
}

std::vector<Scenario> make_scenarios() {
  std::vector<Scenario> scenarios;
  for (const auto &part : {digest_scenarios(), encryption_scenarios(), signature_scenarios(),
                           key_creation_scenarios()}) {
    scenarios.insert(scenarios.end(), part.begin(), part.end());
  }
  scenarios.push_back({"CreateKey", create, {rsa, integer<2048>()}, Ending::value, !legacy, slow});
  return scenarios;
}

// A further call that looks at a result must not disturb the caller's scenario.
bool call_gives_value(const char *function, const std::vector<Argument_view> &arguments) {
  static thread_local Raw_result result;
  call(*find_function(function), arguments, result);
  return result.ending == Ending::value;
}

bool decrypts_to(const Raw_result &ciphertext, const Argument_view &expected) {
  static thread_local Raw_result plaintext;
  const std::vector<Argument_view> arguments{rsa, ciphertext.text(), test_data().private_key};
  call(*find_function(decrypt), arguments, plaintext);
  return plaintext.ending == Ending::value &&
         plaintext.text() == std::string_view(expected.bytes, expected.length);
}

// Whether a value is the right one for the scenario's arguments.
bool is_right_value(const Scenario &scenario, const Raw_result &result) {
  const Test_data &m = test_data();
  const std::vector<Argument_view> &a = scenario.arguments;
  if (scenario.function == create) {
    return call_gives_value(derive, {rsa, result.text()});
  }
  if (scenario.function == derive) {
    return result.text() ==
           (a[1].bytes == m.ec_private_key.data() ? m.ec_public_key : m.public_key);
  }
  if (scenario.function == encrypt) {
    return decrypts_to(result, a[1]);
  }
  if (scenario.function == decrypt) {
    return result.text() == m.content;
  }
  if (scenario.function == sign) {
    return call_gives_value(verify, {a[0], a[1], result.text(), m.public_key, a[3]});
  }
  if (scenario.function == verify) {
    return result.number == 1;
  }
  // The other digest scenario hashes nothing; its value is checked where digests are tested.
  return a[1].length == 0 ? result.length == 64 : result.text() == m.content_digest;
}

}  // namespace

const std::vector<Scenario> &all_scenarios() {
  static const std::vector<Scenario> scenarios = make_scenarios();
  return scenarios;
}

void run(const Scenario &scenario, Raw_result &out) {
  switch_legacy_padding(scenario.legacy);
  call(*find_function(scenario.function.c_str()), scenario.arguments, out);
}

const char *mismatch_of(const Scenario &scenario, const Raw_result &result) {
  if (result.ending != scenario.ending) {
    return "the call ended in another way";
  }
  return mismatch_after_fault(scenario, result, false);
}

const char *mismatch_after_fault(const Scenario &scenario, const Raw_result &result,
                                 bool exceptions_allowed) {
  if (result.error) {
    return "the error flag was set";
  }
  switch (result.ending) {
    case Ending::value:
      if (scenario.ending != Ending::value) {
        return "a value came where none was due";
      }
      return is_right_value(scenario, result) ? nullptr : "the value is wrong";
    case Ending::null:
      return result.number == 0 ? nullptr : "a NULL came with a number";
    case Ending::rejected:
      return scenario.ending == Ending::rejected ? nullptr : "init rejected";
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
