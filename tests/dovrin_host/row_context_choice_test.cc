// When a row enters the small library context, as libcrypto's speed and failures decide: this
// program defines the functions of libcrypto that the choice asks. Speed and configuration are
// looked at once per process, so each case has a process of its own.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/provider.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>

#include "dovrin_host/row_context.h"

namespace dovrin_host {
namespace {

enum class Slow_context { none, small, global };

Slow_context slow_context = Slow_context::none;
// The function of libcrypto that fails, if any.
std::string_view failing_function;

// The library's own function behind one that this file defines, or one that fails in the same way.
template <typename Function>
Function *real_or(Function *failure, const char *name) {
  if (name == failing_function) {
    return failure;
  }
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace dovrin_host

extern "C" {

// Only the time that this takes is measured, by the shortest of a few calls.
EVP_PKEY *PEM_read_bio_PUBKEY(BIO * /*bio*/, EVP_PKEY ** /*key*/, pem_password_cb * /*ask*/,
                              void * /*data*/) {
  using dovrin_host::Slow_context;
  const bool in_global_context =
      OSSL_LIB_CTX_set0_default(nullptr) == OSSL_LIB_CTX_get0_global_default();
  if (dovrin_host::slow_context ==
      (in_global_context ? Slow_context::global : Slow_context::small)) {
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
  }
  return nullptr;
}

int OSSL_PROVIDER_do_all(OSSL_LIB_CTX *ctx, int (*cb)(OSSL_PROVIDER *, void *), void *cbdata) {
  using Visit = int(OSSL_PROVIDER *, void *);
  return dovrin_host::real_or<int(OSSL_LIB_CTX *, Visit *, void *)>(
      [](OSSL_LIB_CTX *, Visit *, void *) { return 0; }, __func__)(ctx, cb, cbdata);
}

OSSL_LIB_CTX *OSSL_LIB_CTX_new() {
  return dovrin_host::real_or<OSSL_LIB_CTX *()>([]() -> OSSL_LIB_CTX * { return nullptr; },
                                                __func__)();
}

char *CONF_get1_default_config_file() {
  return dovrin_host::real_or<char *()>([]() -> char * { return nullptr; }, __func__)();
}

CONF *NCONF_new(CONF_METHOD *method) {
  return dovrin_host::real_or<CONF *(CONF_METHOD *)>(
      [](CONF_METHOD *) -> CONF * { return nullptr; }, __func__)(method);
}

}  // extern "C"

namespace dovrin_host {
namespace {

// Prints whether each of four rows entered: two on this thread, one on another, and one more on
// this.
[[noreturn]] void print_entries_and_exit() {
  const auto print_entry = [] {
    const Small_context_scope scope;
    std::cerr << (scope ? "in " : "out ");
  };
  print_entry();
  print_entry();
  std::thread{print_entry}.join();
  print_entry();
  std::exit(0);
}

class RowContextChoice : public testing::Test {
 protected:
  RowContextChoice() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~RowContextChoice() override {
    set_small_context_use(Small_context_use::where_it_pays);
    slow_context = Slow_context::none;
    failing_function = {};
  }

  static void expect_entries(const char *entries) {
    EXPECT_EXIT(print_entries_and_exit(), testing::ExitedWithCode(0), entries);
  }

  static void expect_entries_without(std::string_view function, const char *entries) {
    set_small_context_use(Small_context_use::always);
    failing_function = function;
    expect_entries(entries);
  }
};

TEST_F(RowContextChoice, EntersAtOnceWhereReadingAKeyIsFasterInIt) {
  slow_context = Slow_context::global;
  expect_entries("^in in in in $");
}

TEST_F(RowContextChoice, EntersWithTheSecondThreadWhereReadingAKeyIsNotFaster) {
  slow_context = Slow_context::small;
  expect_entries("^out out in in $");
}

TEST_F(RowContextChoice, StaysOutWhereTheProvidersCannotBeListed) {
  expect_entries_without("OSSL_PROVIDER_do_all", "^out out out out $");
}

TEST_F(RowContextChoice, StaysOutWithoutAContextOfItsOwn) {
  expect_entries_without("OSSL_LIB_CTX_new", "^out out out out $");
}

TEST_F(RowContextChoice, ConfigurationWithoutAFileChoosesNothing) {
  expect_entries_without("CONF_get1_default_config_file", "^in in in in $");
}

TEST_F(RowContextChoice, ConfigurationThatCannotBeReadChoosesNothing) {
  expect_entries_without("NCONF_new", "^in in in in $");
}

}  // namespace
}  // namespace dovrin_host
