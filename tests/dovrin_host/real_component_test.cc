// The shipped component in this server.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin_host/error_log.h"
#include "dovrin_host/server.h"
#include "dovrin_host/services.h"
#include "printers.h"
#include "records.h"
#include "support/der.h"
#include "support/fixture.h"

namespace dovrin_host {

namespace {

using halvex_test::fixture;

constexpr const char *component_name = "dovrin::component_halvex_encryption";
constexpr const char *key_size = "component_halvex_encryption.maximum_rsa_key_size";
constexpr const char *legacy_padding = "component_halvex_encryption.rsa_support_legacy_padding";

Server &server() { return Server::instance(); }

class RealComponent : public testing::Test {
 protected:
  RealComponent() {
    const Status installed = server().install(COMPONENT_FILE);
    EXPECT_TRUE(installed.ok()) << installed.message();
  }
  ~RealComponent() override {
    const Status uninstalled = server().uninstall(component_name);
    EXPECT_TRUE(uninstalled.ok()) << uninstalled.message();
    EXPECT_EQ(dlopen(COMPONENT_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr);
  }

  static std::unique_ptr<Function_instance> open(const char *name,
                                                 const std::vector<Item_result> &types) {
    auto instance = server().open_function(name, types);
    EXPECT_TRUE(instance.ok()) << instance.message();
    return instance.ok() ? std::move(instance).value() : nullptr;
  }
};

TEST_F(RealComponent, SevenFunctionsAreThere) {
  EXPECT_EQ(server().functions().list(),
            (std::vector<Function_info>{{"asymmetric_decrypt", STRING_RESULT},
                                        {"asymmetric_encrypt", STRING_RESULT},
                                        {"asymmetric_sign", STRING_RESULT},
                                        {"asymmetric_verify", INT_RESULT},
                                        {"create_asymmetric_priv_key", STRING_RESULT},
                                        {"create_asymmetric_pub_key", STRING_RESULT},
                                        {"create_digest", STRING_RESULT}}));
}

TEST_F(RealComponent, TwoVariablesAreThere) {
  EXPECT_EQ(server().variables().list(),
            (std::vector<Variable_info>{
                {key_size, 4096LL, Variable_type::integer, 4096LL, 2048, 16384, 1024,
                 "Maximum size of RSA key generation"},
                {legacy_padding, false, Variable_type::boolean, false, 0, 0, 0,
                 "Supports legacy padding in decryption and signature verification functions"}}));
}

TEST_F(RealComponent, KeySizeIsCheckedByItsLowBits) {
  System_variables &variables = server().variables();
  EXPECT_TRUE(variables.set(key_size, 8192LL).ok());
  EXPECT_EQ(variables.get(key_size).value(), Variable_value{8192LL});
  // 4096 and 2 to the 32nd power: Intentional: the component looks at the low 32 bits only.
  EXPECT_TRUE(variables.set(key_size, 4294971392LL).ok());
  EXPECT_EQ(variables.get(key_size).value(), Variable_value{4096LL});
  for (const Setting &rejected : std::vector<Setting>{1024LL, 2047LL, 3000LL, 16385LL, 17408LL, 0LL,
                                                      -4096LL, std::string{"many"}}) {
    EXPECT_EQ(variables.set(key_size, rejected).message(),
              "The system variable component_halvex_encryption.maximum_rsa_key_size cannot be set "
              "to '" +
                  text_form(rejected) + "'. Allowed are multiples of 1024 from 2048 to 16384.");
  }
  EXPECT_EQ(variables.get(key_size).value(), Variable_value{4096LL});
}

TEST_F(RealComponent, LegacyPaddingIsASwitch) {
  System_variables &variables = server().variables();
  EXPECT_TRUE(variables.set(legacy_padding, std::string{"ON"}).ok());
  EXPECT_EQ(variables.get(legacy_padding).value(), Variable_value{true});
  EXPECT_FALSE(variables.set(legacy_padding, 2LL).ok());
  EXPECT_EQ(variables.get(legacy_padding).value(), Variable_value{true});
}

TEST_F(RealComponent, DigestIsComputedFromArgumentsWithoutTerminator) {
  const auto digest = open("create_digest", {STRING_RESULT, STRING_RESULT});
  ASSERT_NE(digest, nullptr);
  const std::string_view text = "sha256abc";
  const std::vector arguments{Argument::string(text.substr(0, 6)),
                              Argument::string(text.substr(6))};
  const auto row = digest->row(arguments);
  EXPECT_EQ(row,
            string_result(std::string_view(
                "\xba\x78\x16\xbf\x8f\x01\xcf\xea\x41\x41\x40\xde\x5d\xae\x22\x23\xb0\x03\x61\xa3"
                "\x96\x17\x7a\x9c\xb4\x10\xff\x61\xf2\x00\x15\xad",
                32)));
}

// Bytes that end where a page ends behind which nothing can be read.
class Bytes_at_page_end {
 public:
  explicit Bytes_at_page_end(std::string_view bytes) : length_{bytes.size()} {
    EXPECT_LE(length_, page_);
    EXPECT_NE(pages_, MAP_FAILED);
    EXPECT_EQ(mprotect(pages_ + page_, page_, PROT_NONE), 0);
    bytes.copy(pages_ + page_ - length_, length_);
  }
  ~Bytes_at_page_end() { munmap(pages_, 2 * page_); }
  Bytes_at_page_end(const Bytes_at_page_end &) = delete;
  Bytes_at_page_end &operator=(const Bytes_at_page_end &) = delete;

  Argument argument() const { return Argument::string({pages_ + page_ - length_, length_}); }

 private:
  const std::size_t page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t length_;
  char *const pages_ = static_cast<char *>(
      mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
};

// The host copies no such argument, so a byte read too many would end this program.
TEST_F(RealComponent, KeysDataAndSignaturesAreReadAsFarAsTheirLengthSays) {
  const auto algorithm = Argument::string("RSA");
  const auto digest_type = Argument::string("SHA256");
  const Bytes_at_page_end data{"text"};
  const Bytes_at_page_end empty{""};
  const Bytes_at_page_end private_key{fixture("rsa2048.pem")};
  const Bytes_at_page_end public_key{fixture("rsa2048-public.pem")};
  const auto row = [](const char *name, const std::vector<Argument> &arguments) {
    const auto instance = open(name, std::vector(arguments.size(), STRING_RESULT));
    const Row_result result = instance->row(arguments);
    return std::pair{result, std::string{result.text}};
  };
  const auto set_legacy = [](bool on) {
    EXPECT_TRUE(server().variables().set(legacy_padding, on).ok());
  };

  EXPECT_EQ(row("create_digest", {digest_type, data.argument()}).second.size(), 32U);
  EXPECT_EQ(row("create_digest", {digest_type, empty.argument()}).second.size(), 32U);
  EXPECT_EQ(row("create_asymmetric_pub_key", {algorithm, private_key.argument()}).second,
            fixture("rsa2048-public.pem"));
  const Bytes_at_page_end ciphertext{
      row("asymmetric_encrypt", {algorithm, data.argument(), public_key.argument()}).second};
  const Bytes_at_page_end signature{
      row("asymmetric_sign", {algorithm, data.argument(), private_key.argument(), digest_type})
          .second};
  for (const bool legacy : {false, true}) {
    set_legacy(legacy);
    EXPECT_EQ(row("asymmetric_decrypt", {algorithm, ciphertext.argument(), private_key.argument()})
                  .second,
              "text");
    const auto no_ciphertext =
        row("asymmetric_decrypt", {algorithm, signature.argument(), private_key.argument()});
    // Newer libraries give random text in place of a failure of PKCS#1 v1.5, which the switch
    // allows.
    EXPECT_TRUE(legacy || no_ciphertext.first.kind == Row_result::Kind::null);
    EXPECT_EQ(row("asymmetric_verify", {algorithm, data.argument(), signature.argument(),
                                        public_key.argument(), digest_type})
                  .first.integer,
              1);
    EXPECT_EQ(row("asymmetric_verify", {algorithm, data.argument(), ciphertext.argument(),
                                        private_key.argument(), digest_type})
                  .first.integer,
              0);
  }
  set_legacy(false);
}

TEST_F(RealComponent, RejectionHasTheComponentsText) {
  const std::vector types{STRING_RESULT};
  EXPECT_EQ(server().open_function("create_asymmetric_priv_key", types).message(),
            "Mismatch in number of arguments to the function. Expected 2 arguments");
}

TEST_F(RealComponent, NullArgumentIsExplainedInTheErrorLog) {
  const Listener listener;
  const auto create = open("create_asymmetric_priv_key", {STRING_RESULT, INT_RESULT});
  ASSERT_NE(create, nullptr);
  const std::vector arguments{Argument::string("RSA"), Argument::null(INT_RESULT)};
  EXPECT_EQ(create->row(arguments), Row_result{});

  Log_record expected;
  expected.priority = 2;
  expected.code = 13919;
  expected.symbol = "HALVEX_NULL_ARGUMENT";
  expected.component = "component:component_halvex_encryption";
  expected.function = "generate_private_key";
  expected.source_file = "functions";
  expected.source_line = 192;
  expected.message =
      "Component component_halvex_encryption reported: 'The function create_asymmetric_priv_key "
      "was given a NULL argument. Expected: Non-null value for algorithm and a positive integer "
      "value for key size.'";
  expected.hint = find_catalogue_entry(13919)->hint;
  EXPECT_EQ(listener.records(), std::vector{expected});
}

TEST_F(RealComponent, MessageNamesTheLimitInForce) {
  const Listener listener;
  EXPECT_TRUE(server().variables().set(key_size, 2048LL).ok());
  const auto create = open("create_asymmetric_priv_key", {STRING_RESULT, INT_RESULT});
  ASSERT_NE(create, nullptr);
  const std::vector arguments{Argument::string("rsa"), Argument::integer(3072)};
  EXPECT_EQ(create->row(arguments), Row_result{});
  ASSERT_EQ(listener.records().size(), 1U);
  EXPECT_EQ(listener.records()[0].code, 13921);
  EXPECT_EQ(listener.records()[0].message,
            "Component component_halvex_encryption reported: 'The key length 3072 is not valid for "
            "the function create_asymmetric_priv_key with the algorithm RSA. It must be between "
            "2048 and 2048 bits.'");
}

TEST_F(RealComponent, ErrorOfAnotherUserIsNotReportedAsTheCause) {
  const auto encrypt = open("asymmetric_encrypt", std::vector(3, STRING_RESULT));
  ASSERT_NE(encrypt, nullptr);
  const std::vector arguments{Argument::string("RSA"), Argument::string("data"),
                              Argument::string("no key")};
  const auto run = [&] {
    const Listener listener;
    EXPECT_EQ(encrypt->row(arguments), Row_result{});
    return listener.records();
  };
  const std::vector<Log_record> expected = run();
  ERR_raise(ERR_LIB_USER, 9);
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(ERR_GET_LIB(ERR_get_error()), ERR_LIB_USER);
  EXPECT_EQ(ERR_get_error(), 0U);
}

// A DSA private key without its public part, which OpenSSL computes as it reads the key.
std::string dsa_key(std::size_t bits) {
  using namespace halvex_test::der;
  const std::string long_number = integer(bits);
  const std::string algorithm = element(object_identifier_tag, "\x2A\x86\x48\xCE\x38\x04\x01");
  return pem(sequence(element(integer_tag, std::string(1, '\0')) +
                      sequence(algorithm + sequence(long_number + long_number + integer(8))) +
                      element(octet_string_tag, long_number)));
}

// OpenSSL would work for seconds to minutes on these, and nothing could interrupt it.
TEST_F(RealComponent, ExcessiveKeyIsAnErrorOfEveryFunctionThatTakesOne) {
  std::string lines;
  while (lines.size() < 200000 * 56) {
    lines += "-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n";
  }
  const auto of_length = [](std::size_t bytes) {
    return "a key of " + std::to_string(bytes) + " bytes; the limit is 16384";
  };
  const std::vector<std::pair<std::string, std::string>> excesses{
      {lines, of_length(lines.size())},
      {std::string(100000000, '\n'), of_length(100000000)},
      {std::string(16385, 'A'), of_length(16385)},
      {dsa_key(24000), "a key with a number of 24000 bits; the limit is 16384"},
  };
  int functions = 0;
  for (const Function_description &function : function_descriptions()) {
    if (!function.has(Argument_kind::key)) {
      continue;
    }
    ++functions;
    const std::string name{function.name};
    const auto instance = open(name.c_str(), std::vector(function.arguments.size(), STRING_RESULT));
    ASSERT_NE(instance, nullptr);
    for (const auto &[key, excess] : excesses) {
      std::vector<Argument> arguments;
      for (const Argument_kind kind : function.arguments) {
        arguments.push_back(
            Argument::string(kind == Argument_kind::key ? std::string_view{key} : "RSA"));
      }
      const Listener listener;
      EXPECT_EQ(instance->row(arguments),
                error_result("The function " + name + " was given " + excess + '.'));
      EXPECT_TRUE(listener.records().empty());
      EXPECT_EQ(ERR_peek_error(), 0U);
    }
  }
  EXPECT_EQ(functions, 5);
}

TEST_F(RealComponent, LongestRsaKeyFits) {
  const std::string key = halvex_test::fixture("rsa16384.pem");
  const auto create = open("create_asymmetric_pub_key", {STRING_RESULT, STRING_RESULT});
  ASSERT_NE(create, nullptr);
  const std::vector arguments{Argument::string("RSA"), Argument::string(key)};
  EXPECT_EQ(create->row(arguments).text, halvex_test::fixture("rsa16384-public.pem"));
}

TEST_F(RealComponent, OpenInstanceKeepsItInstalled) {
  const auto digest = open("create_digest", {STRING_RESULT, STRING_RESULT});
  EXPECT_EQ(server().uninstall(component_name).message(),
            "The component 'dovrin::component_halvex_encryption' cannot be uninstalled: 1 open "
            "function instance uses it.");
  EXPECT_EQ(server().functions().list().size(), 7U);
}

TEST_F(RealComponent, CanBeReinstalledAHundredTimes) {
  const Listener listener;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(server().uninstall(component_name).ok()) << i;
    ASSERT_TRUE(server().install(COMPONENT_FILE).ok()) << i;
  }
  EXPECT_EQ(server().functions().list().size(), 7U);
  EXPECT_TRUE(listener.records().empty());
}

}  // namespace
}  // namespace dovrin_host
