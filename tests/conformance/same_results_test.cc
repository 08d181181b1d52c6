// One corpus of calls gives the same values and records whatever compiler, system, processor or
// version of OpenSSL is below: same_results.txt, which every build is compared with.
//
// HALVEX_UPDATE_EXPECTED=1 writes the file anew instead; look at the difference before you keep it.

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/component_test.h"
#include "support/function_names.h"
#include "support/hexadecimal.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

constexpr const char *digest = "create_digest";

constexpr std::array digest_names{"SHA224",   "SHA256",   "SHA384",   "SHA512",
                                  "SHA3-224", "SHA3-256", "SHA3-384", "SHA3-512"};

// A fixed text that is a valid signature of nothing.
constexpr unsigned char no_signature = 0x01;

std::string escaped(const std::string &text) {
  std::string result;
  for (const char character : text) {
    result += character >= ' ' && character <= '~' ? std::string(1, character)
                                                   : "\\x" + to_hex(std::string(1, character));
  }
  return result;
}

// The names of all key files, without ".pem".
std::vector<std::string> key_names() {
  std::vector<std::string> names;
  for (const auto &file : std::filesystem::directory_iterator(fixture_path(""))) {
    if (file.path().extension() == ".pem") {
      names.push_back(file.path().stem());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> lines(const std::string &text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    result.push_back(line);
  }
  return result;
}

// An argument with the text that stands for it in the file.
struct Shown {
  Shown(const std::string &text) : Shown("'" + escaped(text) + "'", Argument(text)) {}
  Shown(const char *text) : Shown(std::string(text)) {}
  Shown(int number) : Shown(static_cast<long long>(number)) {}
  Shown(long long number) : Shown(std::to_string(number), Argument(number)) {}
  Shown(std::string text, Argument value) : shown(std::move(text)), argument(std::move(value)) {}

  std::string shown;
  Argument argument;
};

Shown key(const std::string &name) { return {"@" + name, fixture(name + ".pem")}; }
Shown null() { return {"NULL", null_string()}; }
Shown repeated(int count, unsigned char byte) {
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%d * x'%02X'", count, byte));
  return {text.data(), std::string(static_cast<std::size_t>(count), static_cast<char>(byte))};
}
Shown all_bytes() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  return {"x'00'..x'FF'", bytes};
}

class SameResults : public Component_test {
 protected:
  SameResults() { silence_pass_phrase_prompt(); }

  void heading(const std::string &text) { transcript_ += "\n# " + text + "\n\n"; }

  // Runs a call and writes it with its value and its records.
  void show(const std::string &function, const std::vector<Shown> &arguments) {
    show(function, arguments, [](const Call_result &result) {
      const std::string &bytes = result.row.bytes;
      return bytes.size() <= 64 ? to_hex(bytes)
                                : std::to_string(bytes.size()) + " bytes with the SHA-256 digest " +
                                      to_hex(reference_digest("SHA256", bytes));
    });
  }

  // The same where the value is another one each time: `describe` checks it.
  template <typename Describe>
  void show(const std::string &function, const std::vector<Shown> &arguments, Describe describe) {
    std::vector<Argument> values;
    std::string list;
    for (const Shown &argument : arguments) {
      values.push_back(argument.argument);
      list += (list.empty() ? "" : ", ") + argument.shown;
    }
    server.forget_records();
    const Call_result result = call(function, values);
    const std::vector<Record> records = server.records();
    std::string value;
    if (result.rejection) {
      value = "rejected: " + *result.rejection;
    } else if (result.row.is_null) {
      value = "NULL";
    } else {
      value = function == verify ? std::to_string(result.row.integer) : describe(result);
    }
    transcript_ += function + "(" + list + ") = " + value + "\n";
    for (const Record &record : records) {
      add_record(record);
    }
  }

  void show_encryption(const Shown &data, const std::string &key_name) {
    show(encrypt, {"RSA", data, key(key_name + "-public")}, [&](const Call_result &result) {
      EXPECT_EQ(call(decrypt, {"RSA", result.row.bytes, fixture(key_name + ".pem")}).row.bytes,
                data.argument.value);
      return std::to_string(result.row.bytes.size()) + " bytes that decrypt to the data";
    });
  }

  // The length of a DSA or ECDSA signature is a matter of chance.
  void show_signature(const std::string &key_name, const std::string &public_key,
                      const std::string &digest_name) {
    show(sign, {"RSA", "text", key(key_name), digest_name.c_str()}, [&](const Call_result &result) {
      EXPECT_EQ(
          call(verify, {"RSA", "text", result.row.bytes, fixture(public_key + ".pem"), digest_name})
              .row.integer,
          1);
      return (key_name.starts_with("rsa") ? std::to_string(result.row.bytes.size()) + " bytes"
                                          : "a signature") +
             " of the text";
    });
  }

  // The parts of the corpus.
  void show_rejections();
  void show_digests();
  void show_algorithms();
  void show_key_sizes();
  void show_lengths();
  void show_signatures();
  void show_keys(bool legacy);
  void show_legacy_decryption();

  const std::string &transcript() const { return transcript_; }

 private:
  void add_record(const Record &record) {
    std::string text;
    for (const std::string &argument : arguments_of(record)) {
      text += " | " + escaped(argument);
    }
    transcript_ += "  " + std::string(record.priority == 1 ? "error " : "warning ") +
                   std::to_string(record.code) + " " + record.file + " " + record.function + text +
                   "\n";
  }

  std::string transcript_;
};

void SameResults::show_rejections() {
  heading("Numbers and types of arguments, NULL");
  const std::vector<std::pair<std::string, std::vector<Shown>>> calls{
      {create, {"RSA", 2048}},
      {derive, {"RSA", key("rsa2048")}},
      {encrypt, {"RSA", "text", key("rsa2048-public")}},
      {decrypt, {"RSA", "text", key("rsa2048")}},
      {sign, {"RSA", "text", key("rsa2048"), "SHA256"}},
      {verify, {"RSA", "text", "signature", key("rsa2048-public"), "SHA256"}},
      {digest, {"SHA256", "text"}}};
  for (const auto &[function, arguments] : calls) {
    show(function, {});
    show(function, {arguments.begin(), arguments.end() - 1});
    std::vector<Shown> changed = arguments;
    changed.emplace_back("more");
    show(function, changed);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      const bool is_number = arguments[i].argument.type == INT_RESULT;
      changed = arguments;
      changed[i] = is_number ? Shown("2048") : Shown(1);
      show(function, changed);
      changed[i] = Shown("1.5", Argument(1.5));
      show(function, changed);
      changed[i] = is_number ? Shown("NULL", null_integer()) : null();
      show(function, changed);
    }
  }
}

void SameResults::show_digests() {
  heading("Digests");
  for (const char *name : digest_names) {
    for (const Shown &data : {Shown(""), Shown("abc"), all_bytes()}) {
      show(digest, {name, data});
    }
  }
  for (const char *name : {"sha256", "Sha3-512", "SHA1", "MD5", "SHA-256", "SHA256 ", ""}) {
    show(digest, {name, "abc"});
  }
  show(digest, {std::string("SHA256\0x", 8), "abc"});
  // Around the ends of the blocks of every digest.
  for (const int length :
       {55, 56, 63, 64, 71, 72, 103, 104, 111, 112, 127, 128, 135, 136, 143, 144}) {
    for (const char *name : {"SHA224", "SHA512", "SHA3-224", "SHA3-512"}) {
      show(digest, {name, repeated(length, 'd')});
    }
  }
}

void SameResults::show_algorithms() {
  heading("Algorithms");
  // Bytes above 127 are negative chars on one processor and positive ones on another.
  for (const char *name : {"rsa", "DSA", "RSA ", "", "\xC3\xBCr", "\xFF"}) {
    show(create, {name, 1024});
    show(derive, {name, key("rsa2048")});
    show(encrypt, {name, "text", "no key"});
    show(decrypt, {name, "text", "no key"});
    show(sign, {name, "text", "no key", "SHA256"});
    show(verify, {name, "text", "signature", "no key", "SHA256"});
  }
}

void SameResults::show_key_sizes() {
  heading("Key sizes");
  for (const long long bits : {LLONG_MIN, -2048LL, -1LL, 0LL, 1LL, 1024LL, 2047LL, 4097LL, 8192LL,
                               1LL << 31, (1LL << 32) + 2048, LLONG_MAX}) {
    show(create, {"RSA", bits});
  }
  for (const long long bits : {2048, 2049}) {
    show(create, {"RSA", bits}, [&](const Call_result &result) {
      return "a PEM text of a private key of " + std::to_string(reference_bits(result.row.bytes)) +
             " bits";
    });
  }
}

void SameResults::show_lengths() {
  heading("Lengths of data and ciphertexts");
  for (const auto &[key_name, limit] : {std::pair{"rsa2048", 214},
                                        {"rsa3072", 342},
                                        {"rsa4096", 470},
                                        {"rsa2048-three-primes", 214}}) {
    for (const int length : {1, limit - 1, limit}) {
      show_encryption(repeated(length, 'd'), key_name);
    }
    for (const int length : {0, limit + 1, limit + 42, limit + 43}) {
      show(encrypt, {"RSA", repeated(length, 'd'), key(std::string(key_name) + "-public")});
    }
    for (const int length : {0, 1, limit + 41, limit + 42, limit + 43}) {
      show(decrypt, {"RSA", repeated(length, 'c'), key(key_name)});
    }
  }
}

void SameResults::show_signatures() {
  heading("Signatures of every digest type");
  for (const char *name : digest_names) {
    show_signature("rsa2048", "rsa2048-public", name);
    show_signature("rsa3072", "rsa3072-public", name);
    show_signature("rsa2048-traditional", "rsa2048-rsa-public", name);
    show_signature("ec-p256", "ec-p256-public", name);
    show_signature("dsa2048", "dsa2048-public", name);
    show(verify, {"RSA", "text", repeated(256, no_signature), key("rsa2048-public"), name});
  }
  for (const char *name : {"sha256", "SHA1", "MD5", "SHA-256", ""}) {
    show(verify, {"RSA", "text", repeated(256, no_signature), key("rsa2048-public"), name});
    show(sign, {"RSA", "", key("rsa2048"), name});
  }
  for (const int length : {0, 1, 255, 257}) {
    show(verify, {"RSA", "text", repeated(length, no_signature), key("rsa2048-public"), "SHA256"});
  }
  const std::string signature =
      call(sign, {"RSA", "text", fixture("rsa2048.pem"), "SHA256"}).row.bytes;
  show(verify, {"RSA", "text", Shown("the signature", signature), key("rsa2048-public"), "SHA256"});
  show(verify,
       {"RSA", "other", Shown("the signature", signature), key("rsa2048-public"), "SHA256"});
}

void SameResults::show_keys(bool legacy) {
  switch_legacy_padding(legacy);
  heading(std::string("Keys of every kind, legacy padding ") + (legacy ? "on" : "off"));
  for (const std::string &name : key_names()) {
    if (!legacy) {
      show(derive, {"RSA", key(name)});
      show(encrypt, {"RSA", repeated(3000, 'd'), key(name)});
      show(sign, {"RSA", "text", key(name), "no digest"});
    }
    show(decrypt, {"RSA", repeated(3000, 'c'), key(name)});
    // Left out: OpenSSL 3.0 rejects an Ed25519 key in the legacy check, 3.5 takes any signature as
    // right.
    if (!legacy || name != "ed25519-public") {
      show(verify, {"RSA", "text", repeated(256, no_signature), key(name), "SHA256"});
    }
    show(verify, {"RSA", "text", repeated(256, no_signature), key(name), "SHA3-256"});
  }
}

void SameResults::show_legacy_decryption() {
  show(decrypt, {"RSA",
                 Shown("the PKCS#1 v1.5 ciphertext of 'text'",
                       reference_encrypt(fixture("rsa2048-public.pem"), "text", 1)),
                 key("rsa2048")});
}

TEST_F(SameResults, EveryCallGivesWhatTheFileContains) {
  show_rejections();
  show_digests();
  show_algorithms();
  show_key_sizes();
  show_lengths();
  show_signatures();
  show_keys(false);
  show_keys(true);
  show_legacy_decryption();

  const std::string file = fixture_path("../conformance/same_results.txt");
  if (std::getenv("HALVEX_UPDATE_EXPECTED") != nullptr) {
    std::ofstream(file) << transcript();
  }
  const std::vector<std::string> actual = lines(transcript());
  const std::vector<std::string> expected =
      lines(project_file("tests/conformance/same_results.txt"));
  const auto [different, other] =
      std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  EXPECT_EQ(different == actual.end() ? "(no more lines)" : *different,
            other == expected.end() ? "(no more lines)" : *other)
      << "in line " << different - actual.begin() + 1;
}

}  // namespace
}  // namespace halvex_test
