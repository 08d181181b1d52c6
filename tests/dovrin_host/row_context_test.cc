// A row in the small library context gives what the same row gives in the default context.

#include "dovrin_host/row_context.h"

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/rsa.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dovrin_host/server.h"
#include "support/fixture.h"
#include "support/host_rows.h"
#include "support/temporary_folder.h"

namespace dovrin_host {

namespace {

using halvex_test::Both_rows;
using halvex_test::fixture;
using halvex_test::Host_row;
using halvex_test::run_host_row;
using halvex_test::run_in_both_contexts;
using halvex_test::set_host_legacy_padding;

constexpr const char *component_name = "dovrin::component_halvex_encryption";

struct Context_deleter {
  void operator()(OSSL_LIB_CTX *context) const { OSSL_LIB_CTX_free(context); }
};
using Context_ptr = std::unique_ptr<OSSL_LIB_CTX, Context_deleter>;

struct Provider_deleter {
  void operator()(OSSL_PROVIDER *provider) const { OSSL_PROVIDER_unload(provider); }
};
using Provider_ptr = std::unique_ptr<OSSL_PROVIDER, Provider_deleter>;

OSSL_LIB_CTX *thread_default() { return OSSL_LIB_CTX_set0_default(nullptr); }

bool enters_small_context() {
  const Small_context_scope scope;
  return static_cast<bool>(scope);
}

class RowContext : public testing::Test {
 protected:
  RowContext() { set_small_context_use(Small_context_use::always); }
  ~RowContext() override { set_small_context_use(Small_context_use::where_it_pays); }
};

TEST_F(RowContext, ChangesTheThreadsDefaultWhileTheScopeLasts) {
  OSSL_LIB_CTX *const before = thread_default();
  OSSL_LIB_CTX *first = nullptr;
  {
    const Small_context_scope scope;
    ASSERT_TRUE(scope);
    first = thread_default();
    EXPECT_NE(first, before);
  }
  EXPECT_EQ(thread_default(), before);
  const Small_context_scope again;
  EXPECT_EQ(thread_default(), first) << "one context per thread";
}

TEST_F(RowContext, EveryThreadHasItsOwn) {
  const Small_context_scope scope;
  OSSL_LIB_CTX *other = nullptr;
  std::thread{[&] {
    const Small_context_scope other_scope;
    other = thread_default();
  }}.join();
  EXPECT_NE(other, thread_default());
}

TEST_F(RowContext, StaysOutWhenSwitchedOff) {
  set_small_context_use(Small_context_use::never);
  EXPECT_FALSE(enters_small_context());
}

TEST_F(RowContext, StaysOutBesideAnotherThreadDefault) {
  const Context_ptr own{OSSL_LIB_CTX_new()};
  OSSL_LIB_CTX *const former = OSSL_LIB_CTX_set0_default(own.get());
  EXPECT_FALSE(enters_small_context());
  EXPECT_EQ(thread_default(), own.get());
  OSSL_LIB_CTX_set0_default(former);
  EXPECT_TRUE(enters_small_context());
}

TEST_F(RowContext, StaysOutBesideAnotherProvider) {
  {
    const Provider_ptr null_provider{OSSL_PROVIDER_try_load(nullptr, "null", 1)};
    ASSERT_NE(null_provider, nullptr);
    EXPECT_FALSE(enters_small_context());
  }
  EXPECT_TRUE(enters_small_context());
}

TEST_F(RowContext, StaysOutWhenDefaultPropertiesHideRsa) {
  ASSERT_EQ(EVP_set_default_properties(nullptr, "fips=yes"), 1);
  EXPECT_FALSE(enters_small_context());
  ASSERT_EQ(EVP_set_default_properties(nullptr, ""), 1);
  EXPECT_TRUE(enters_small_context());
}

// OpenSSL reads its configuration once, so each case has a process of its own.
TEST_F(RowContext, StaysOutWhenTheConfigurationChoosesRandomGenerators) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr int entered = 10;
  constexpr int stayed_out = 11;
  const halvex_test::Temporary_folder folder;
  const auto ask = [&] {
    const int status = enters_small_context() ? entered : stayed_out;
    std::filesystem::remove_all(folder.path());
    std::exit(status);
  };
  const std::string file = folder / "openssl.cnf";
  setenv("OPENSSL_CONF", file.c_str(), 1);
  const std::string start = "openssl_conf = init\n[init]\n";

  std::ofstream{file} << "random = generators\n";
  EXPECT_EXIT(ask(), testing::ExitedWithCode(entered), "");
  std::ofstream{file} << start << "oid_section = oids\n[oids]\n";
  EXPECT_EXIT(ask(), testing::ExitedWithCode(entered), "");
  std::ofstream{file} << start << "random = generators\n[generators]\nrandom = HASH-DRBG\n";
  EXPECT_EXIT(ask(), testing::ExitedWithCode(stayed_out), "");
  unsetenv("OPENSSL_CONF");
}

#ifndef OPENSSL_NO_ENGINE
// Engines are deprecated, but a program that still uses one must keep it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
struct Engine_deleter {
  void operator()(ENGINE *engine) const { ENGINE_free(engine); }
};
using Engine_ptr = std::unique_ptr<ENGINE, Engine_deleter>;

TEST_F(RowContext, StaysOutBesideAnEngineThatTakesRsaKeys) {
  const Engine_ptr engine{ENGINE_new()};
  ASSERT_EQ(ENGINE_set_id(engine.get(), "test"), 1);
  ASSERT_EQ(ENGINE_set_RSA(engine.get(), RSA_PKCS1_OpenSSL()), 1);
  ASSERT_EQ(ENGINE_set_default_RSA(engine.get()), 1);
  EXPECT_FALSE(enters_small_context());
  ENGINE_unregister_RSA(engine.get());
  EXPECT_TRUE(enters_small_context());
}

// Offers methods for RSA keys and has none.
int list_rsa_methods(ENGINE * /*engine*/, EVP_PKEY_METHOD **method, const int **ids, int /*id*/) {
  static constexpr int rsa = EVP_PKEY_RSA;
  if (method == nullptr) {
    *ids = &rsa;
    return 1;
  }
  *method = nullptr;
  return 0;
}

TEST_F(RowContext, StaysOutBesideAnEngineWithMethodsForRsaKeys) {
  const Engine_ptr engine{ENGINE_new()};
  ASSERT_EQ(ENGINE_set_id(engine.get(), "test"), 1);
  ASSERT_EQ(ENGINE_set_pkey_meths(engine.get(), list_rsa_methods), 1);
  ASSERT_EQ(ENGINE_set_default_pkey_meths(engine.get()), 1);
  EXPECT_FALSE(enters_small_context());
  ENGINE_unregister_pkey_meths(engine.get());
  EXPECT_TRUE(enters_small_context());
}
#pragma GCC diagnostic pop
#endif

// Asks from a destructor that runs after the thread's small context is gone.
struct Asks_while_ending {
  bool *entered;
  ~Asks_while_ending() { *entered = enters_small_context(); }
};

TEST_F(RowContext, StaysOutWhileTheThreadEnds) {
  bool entered_before = false;
  bool entered_while_ending = true;
  std::thread{[&] {
    // Made before the context, so destroyed after it.
    static thread_local Asks_while_ending late{&entered_while_ending};
    static_cast<void>(late);
    entered_before = enters_small_context();
  }}.join();
  EXPECT_TRUE(entered_before);
  EXPECT_FALSE(entered_while_ending);
}

TEST_F(RowContext, AChildProcessMakesItsOwn) {
  OSSL_LIB_CTX *parents = nullptr;
  {
    const Small_context_scope scope;
    parents = thread_default();
  }
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    const Small_context_scope scope;
    _exit(scope && thread_default() != parents ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(RowContext, TheEnvironmentDecides) {
  const auto use_with = [](const char *value) {
    setenv("HALVEX_ROW_CONTEXT", value, 1);
    const Small_context_use use = small_context_use_of_environment();
    unsetenv("HALVEX_ROW_CONTEXT");
    return use;
  };
  EXPECT_EQ(use_with("on"), Small_context_use::always);
  EXPECT_EQ(use_with("off"), Small_context_use::never);
  EXPECT_EQ(use_with("yes"), Small_context_use::where_it_pays);
  EXPECT_EQ(small_context_use_of_environment(), Small_context_use::where_it_pays);
}

TEST(RowContextKey, OnlyOneBlockOfAKnownLabelWithoutAHeaderReadsAlike) {
  EXPECT_TRUE(reads_alike_in_small_context(fixture("rsa2048.pem")));
  EXPECT_TRUE(reads_alike_in_small_context(fixture("rsa2048-public.pem")));
  EXPECT_TRUE(reads_alike_in_small_context(fixture("rsa2048-traditional.pem")));
  EXPECT_TRUE(reads_alike_in_small_context("a comment\n" + fixture("rsa2048.pem") + "behind it\n"));

  EXPECT_FALSE(reads_alike_in_small_context(""));
  EXPECT_FALSE(reads_alike_in_small_context("no key"));
  EXPECT_FALSE(reads_alike_in_small_context("-----BEGIN"));
  EXPECT_FALSE(reads_alike_in_small_context(fixture("rsa2048-rsa-public.pem")));
  EXPECT_FALSE(reads_alike_in_small_context(fixture("rsa2048-encrypted.pem")));
  EXPECT_FALSE(reads_alike_in_small_context(fixture("rsa2048-encrypted-traditional.pem")));
  EXPECT_FALSE(reads_alike_in_small_context(fixture("ec-p256.pem") + fixture("rsa2048.pem")));
  EXPECT_FALSE(reads_alike_in_small_context(fixture("rsa2048.pem") + "-----BEGIN"));
}

struct Call {
  std::string function;
  std::vector<std::string> arguments;
};

std::vector<Argument> string_arguments(const Call &call) {
  std::vector<Argument> arguments;
  for (const std::string &argument : call.arguments) {
    arguments.push_back(Argument::string(argument));
  }
  return arguments;
}

Host_row run(const Call &call, Small_context_use use) {
  return run_host_row(call.function, string_arguments(call), use);
}

// The fixtures of one key pair, by their names without ".pem".
struct Key_pair {
  const char *private_key;
  const char *public_key;
};

constexpr Key_pair key_pairs[]{
    {"rsa2048", "rsa2048-public"},
    {"rsa2048-traditional", "rsa2048-rsa-public"},
    {"rsa2048-other", "rsa2048-other-public"},
    {"rsa2048-three-primes", "rsa2048-three-primes-public"},
    {"rsa-pss2048", "rsa-pss2048-public"},
    {"rsa-tiny", "rsa-tiny-public"},
    {"ec-p256", "ec-p256-public"},
    {"ed25519", "ed25519-public"},
    {"dsa2048", "dsa2048-public"},
    {"rsa2048-encrypted", "rsa2048-public-with-words"},
};

// Calls with keys of every kind, whole, damaged and in company, from one seed.
class Random_calls {
 public:
  explicit Random_calls(unsigned seed) : engine_{seed} {}

  // A number below `bound`.
  std::size_t below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>{0, bound - 1}(engine_);
  }

  bool one_in(std::size_t count) { return below(count) == 0; }

  const Key_pair &pair() {
    // Half of all calls are about the ordinary pair.
    return one_in(2) ? key_pairs[0] : key_pairs[below(std::size(key_pairs))];
  }

  std::string key(const char *name) {
    std::string text = fixture(std::string{name} + ".pem");
    switch (below(10)) {
      case 0:
        text.resize(below(text.size() + 1));
        break;
      case 1:
        for (std::size_t i = 0, count = 1 + below(3); i < count; ++i) {
          text[below(text.size())] = static_cast<char>(below(256));
        }
        break;
      case 2:
        text = fixture(std::string{any_key()} + ".pem") + text;
        break;
      case 3:
        text += fixture(std::string{any_key()} + ".pem");
        break;
      case 4:
        text = "# a comment\n" + text + "trailing words\n";
        break;
      case 5:
        replace_all(text, "\n", one_in(2) ? "\r\n" : " ");
        break;
      case 6:
        replace_all(text, one_in(2) ? "PUBLIC" : "PRIVATE", one_in(2) ? "PRIVATE" : "PUBLIC");
        break;
      case 7:
        text.erase(below(text.size()), 1 + below(4));
        break;
      default:
        break;
    }
    return text;
  }

  const char *any_key() {
    const Key_pair &any = key_pairs[below(std::size(key_pairs))];
    return one_in(2) ? any.private_key : any.public_key;
  }

  const char *digest() {
    static constexpr const char *names[]{"SHA224",   "sha256",   "SHA512",
                                         "SHA3-256", "SHA3-512", "MD5"};
    return names[below(std::size(names))];
  }

 private:
  static void replace_all(std::string &text, const std::string &old, const std::string &by) {
    for (auto at = text.find(old); at != std::string::npos; at = text.find(old, at + by.size())) {
      text.replace(at, old.size(), by);
    }
  }

  std::mt19937 engine_;
};

class RowContextDifference : public RowContext {
 protected:
  RowContextDifference() {
    const Status installed = Server::instance().install(COMPONENT_FILE);
    EXPECT_TRUE(installed.ok()) << installed.message();
  }
  ~RowContextDifference() override {
    set_host_legacy_padding(false);
    const Status uninstalled = Server::instance().uninstall(component_name);
    EXPECT_TRUE(uninstalled.ok()) << uninstalled.message();
  }

  // Both contexts give the same; returns the row in the small one.
  static Host_row expect_alike(const Call &call) {
    Both_rows rows = run_in_both_contexts(call.function, string_arguments(call));
    EXPECT_TRUE(rows.alike) << rows << '\n' << testing::PrintToString(call.arguments);
    return std::move(rows.small);
  }
};

constexpr auto string_value = Row_result::Kind::string;

TEST_F(RowContextDifference, RandomCallsGiveTheSameInBothContexts) {
  const char *const wanted = std::getenv("HALVEX_RANDOM_CALLS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) / 6 : 150;
  const char *const seed = std::getenv("HALVEX_RANDOM_SEED");
  Random_calls random{seed != nullptr ? static_cast<unsigned>(std::atoi(seed)) : 1U};
  int values = 0;

  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    set_host_legacy_padding(random.one_in(4));
    const Key_pair &pair = random.pair();
    const std::string private_key = random.key(pair.private_key);
    const std::string public_key = random.key(pair.public_key);
    const std::string data(1 + random.below(random.one_in(8) ? 300 : 60), 'd');
    const std::string digest = random.digest();

    values +=
        expect_alike({"create_asymmetric_pub_key", {"RSA", private_key}}).kind == string_value;

    const Host_row ciphertext = expect_alike({"asymmetric_encrypt", {"RSA", data, public_key}});
    values += ciphertext.kind == string_value;
    std::string encrypted = ciphertext.kind == string_value ? ciphertext.bytes : data;
    if (random.one_in(4)) {
      encrypted[random.below(encrypted.size())] ^= 1;
    }
    // A made-up plaintext, which newer libraries give with the legacy switch on, depends on key and
    // ciphertext alone.
    values +=
        expect_alike({"asymmetric_decrypt", {"RSA", encrypted, private_key}}).kind == string_value;

    const Host_row signature =
        expect_alike({"asymmetric_sign", {"RSA", data, private_key, digest}});
    values += signature.kind == string_value;
    std::string signed_bytes = signature.kind == string_value ? signature.bytes : data;
    if (random.one_in(4)) {
      signed_bytes[random.below(signed_bytes.size())] ^= 1;
    }
    expect_alike({"asymmetric_verify", {"RSA", data, signed_bytes, public_key, digest}});
    expect_alike(
        {"asymmetric_verify",
         {"RSA", data, signed_bytes, fixture(std::string{pair.public_key} + ".pem"), digest}});
  }
  EXPECT_GT(values, rounds) << "most calls must have reached the library";
}

TEST_F(RowContextDifference, ValuesOfTheSmallContextAreRightInTheDefaultOne) {
  const std::string private_key = fixture("rsa2048.pem");
  const std::string public_key = fixture("rsa2048-public.pem");
  const Host_row ciphertext =
      run({"asymmetric_encrypt", {"RSA", "text", public_key}}, Small_context_use::always);
  EXPECT_EQ(
      run({"asymmetric_decrypt", {"RSA", ciphertext.bytes, private_key}}, Small_context_use::never)
          .bytes,
      "text");
  const Host_row signature =
      run({"asymmetric_sign", {"RSA", "text", private_key, "SHA256"}}, Small_context_use::always);
  EXPECT_EQ(run({"asymmetric_verify", {"RSA", "text", signature.bytes, public_key, "SHA256"}},
                Small_context_use::never)
                .integer,
            1);
}

TEST_F(RowContextDifference, DefaultPropertiesThatHideRsaGiveTheSameRecords) {
  ASSERT_EQ(EVP_set_default_properties(nullptr, "fips=yes"), 1);
  const Host_row outcome =
      expect_alike({"asymmetric_sign", {"RSA", "text", fixture("rsa2048.pem"), "SHA256"}});
  ASSERT_EQ(EVP_set_default_properties(nullptr, ""), 1);
  EXPECT_EQ(outcome.kind, Row_result::Kind::null);
  EXPECT_EQ(outcome.records.size(), 2U);
}

TEST_F(RowContextDifference, ThreadsComeAndGo) {
  const Call call{"create_asymmetric_pub_key", {"RSA", fixture("rsa2048.pem")}};
  for (int round = 0; round < 50; ++round) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        const std::vector<Item_result> types(2, STRING_RESULT);
        auto instance = Server::instance().open_function(call.function, types);
        EXPECT_EQ(instance.value()->row(string_arguments(call)).text,
                  fixture("rsa2048-public.pem"));
      });
    }
    for (std::thread &thread : threads) {
      thread.join();
    }
  }
}

}  // namespace

}  // namespace dovrin_host
