// The component's registration against its own callbacks and storage, and the callbacks of the key
// size variable.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>

#include "classes/class_test.h"
#include "halvex_encryption/functions.h"
#include "halvex_encryption/rsa_implementation.h"

namespace halvex_test {
namespace {

using halvex_encryption::HX_functions;
namespace rsa = halvex_encryption::rsa;
using ::testing::ElementsAre;

class ComponentState : public Class_test {
 protected:
  void SetUp() override { ASSERT_EQ(halvex_encryption::init(), 0); }
  void TearDown() override {
    ASSERT_EQ(set_variable("maximum_rsa_key_size", 4096), Set_result::accepted);
    EXPECT_EQ(halvex_encryption::deinit(), 0);
  }

  template <typename Row>
  void expect_callbacks(const std::string &name, Row row, Udf_func_init init,
                        Udf_func_deinit deinit) const {
    const Registered_function function = server.function(name);
    EXPECT_EQ(function.row, reinterpret_cast<Udf_func_any>(row)) << name;
    EXPECT_EQ(function.init, init) << name;
    EXPECT_EQ(function.deinit, deinit) << name;
  }
};

TEST_F(ComponentState, EveryFunctionIsRegisteredWithItsOwnCallbacks) {
  expect_callbacks("create_asymmetric_priv_key", HX_functions::generate_private_key,
                   HX_functions::generate_private_key_init, HX_functions::string_function_deinit);
  expect_callbacks("create_asymmetric_pub_key", HX_functions::generate_public_key,
                   HX_functions::generate_public_key_init, HX_functions::string_function_deinit);
  expect_callbacks("asymmetric_encrypt", HX_functions::encrypt, HX_functions::encrypt_init,
                   HX_functions::string_function_deinit);
  expect_callbacks("asymmetric_decrypt", HX_functions::decrypt, HX_functions::decrypt_init,
                   HX_functions::string_function_deinit);
  expect_callbacks("asymmetric_sign", HX_functions::sign, HX_functions::sign_init,
                   HX_functions::string_function_deinit);
  expect_callbacks("asymmetric_verify", HX_functions::verify, HX_functions::verify_init,
                   HX_functions::verify_deinit);
  expect_callbacks("create_digest", HX_functions::digest, HX_functions::digest_init,
                   HX_functions::string_function_deinit);
}

TEST_F(ComponentState, VariablesAreRegisteredWithTheirStorageAndCallbacks) {
  const Registered_variable key_size = server.variable("maximum_rsa_key_size");
  EXPECT_EQ(key_size.storage, &rsa::maximum_rsa_key_size_value);
  EXPECT_EQ(key_size.check, rsa::RSA_system_variables_data::check);
  EXPECT_EQ(key_size.update, rsa::RSA_system_variables_data::update);
  EXPECT_EQ(server.variable("rsa_support_legacy_padding").storage,
            &rsa::rsa_support_legacy_padding_value);
}

TEST_F(ComponentState, BothCopiesOfTheKeySizeAre4096AndFollowASet) {
  EXPECT_EQ(rsa::maximum_rsa_key_size_value, 4096);
  EXPECT_EQ(rsa::maximum_rsa_key_size_current.load(), 4096);
  ASSERT_EQ(set_variable("maximum_rsa_key_size", 8192), Set_result::accepted);
  EXPECT_EQ(rsa::maximum_rsa_key_size_value, 8192);
  EXPECT_EQ(rsa::maximum_rsa_key_size_current.load(), 8192);
}

TEST_F(ComponentState, AcceptedValueChangesNothingBeforeTheUpdate) {
  struct Value {
    st_dovrin_value record{};
  } value;
  value.record.val_int = [](st_dovrin_value * /*self*/, long long *out) {
    *out = 8192;
    return 1;  // its result does not count
  };
  long long *cell = nullptr;
  ASSERT_EQ(rsa::RSA_system_variables_data::check(nullptr, nullptr, &cell, &value.record), 0);
  ASSERT_NE(cell, nullptr);
  EXPECT_EQ(*cell, 8192);
  EXPECT_EQ(rsa::maximum_rsa_key_size_value, 4096);
  EXPECT_EQ(rsa::maximum_rsa_key_size_current.load(), 4096);
  rsa::RSA_system_variables_data::update(nullptr, nullptr, nullptr, &cell);
  EXPECT_EQ(rsa::maximum_rsa_key_size_value, 8192);
}

TEST_F(ComponentState, UpdateNeedsNoStorageAddress) {
  auto *cell = new long long{8192};
  rsa::RSA_system_variables_data::update(nullptr, nullptr, nullptr, &cell);
  EXPECT_EQ(rsa::maximum_rsa_key_size_value, 8192);
  EXPECT_EQ(rsa::maximum_rsa_key_size_current.load(), 8192);
}

// Makes the memory of both copies read-only; the first write to it is noted and ends that.
class First_write {
 public:
  First_write() {
    const auto page_size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto [low, high] =
        std::minmax({reinterpret_cast<std::uintptr_t>(&rsa::maximum_rsa_key_size_value),
                     reinterpret_cast<std::uintptr_t>(&rsa::maximum_rsa_key_size_current)});
    pages = reinterpret_cast<void *>(low / page_size * page_size);
    size = (high / page_size + 1) * page_size - low / page_size * page_size;
    struct sigaction on_fault {};
    on_fault.sa_flags = SA_SIGINFO;
    on_fault.sa_sigaction = [](int /*signal*/, siginfo_t *info, void * /*context*/) {
      mprotect(pages, size, PROT_READ | PROT_WRITE);
      address = info->si_addr;  // may lie on those pages itself
    };
    sigaction(SIGSEGV, &on_fault, &previous_);
    mprotect(pages, size, PROT_READ);
  }
  ~First_write() { sigaction(SIGSEGV, &previous_, nullptr); }
  First_write(const First_write &) = delete;
  First_write &operator=(const First_write &) = delete;

  inline static const void *volatile address = nullptr;

 private:
  inline static void *pages = nullptr;
  inline static std::size_t size = 0;
  struct sigaction previous_ {};
};

TEST_F(ComponentState, UpdateInstallsTheStorageBeforeThePublishedCopy) {
  auto *cell = new long long{8192};
  {
    const First_write first_write;
    rsa::RSA_system_variables_data::update(nullptr, nullptr, nullptr, &cell);
  }
  EXPECT_EQ(First_write::address, &rsa::maximum_rsa_key_size_value);
}

// A key may be made up to the published copy; the message shows the storage.
TEST_F(ComponentState, ValidationComparesWithThePublishedCopyAndNamesTheStorage) {
  rsa::maximum_rsa_key_size_value = 3072;
  const auto validator = [](std::uint64_t bits) {
    return rsa::RSA_generate_validator({"a_function", "rsa"}, true, bits);
  };
  EXPECT_TRUE(validator(4096).validate());
  EXPECT_FALSE(validator(4097).validate());
  EXPECT_THAT(server.records(), ElementsAre(key_length_rejected("4097", 3072, "a_function")));
}

TEST_F(ComponentState, LegacyDigestTableHoldsTheFourSha2NamesAlone) {
  EXPECT_EQ(rsa::legacy_digests.size(), 4U);
  EXPECT_EQ(rsa::legacy_digests.at("SHA224"), EVP_sha224());
  EXPECT_EQ(rsa::legacy_digests.at("SHA256"), EVP_sha256());
  EXPECT_EQ(rsa::legacy_digests.at("SHA384"), EVP_sha384());
  EXPECT_EQ(rsa::legacy_digests.at("SHA512"), EVP_sha512());
  EXPECT_FALSE(rsa::legacy_digests.contains("sha256"));
}

}  // namespace
}  // namespace halvex_test
