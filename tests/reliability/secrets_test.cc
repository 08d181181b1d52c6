// After a call and its deinit no buffer of the component still holds private key text or plaintext,
// freed memory and dead stack frames included.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/ui.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "arena_allocations.h"
#include "memory_scan.h"
#include "support/fake_server.h"
#include "support/fixture.h"
#include "support/loaded_component.h"
#include "support/raw_call.h"
#include "support/sanitizers.h"

namespace halvex_test {
namespace {

constexpr std::size_t marker_length = 48;
constexpr std::size_t stage_size = 65536;

// Where the test keeps secrets while a call needs them; wiped before every scan.
class Stage {
 public:
  Stage()
      : memory_{static_cast<char *>(mmap(nullptr, stage_size, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))} {}
  ~Stage() { munmap(memory_, stage_size); }
  Stage(const Stage &) = delete;
  Stage &operator=(const Stage &) = delete;

  // Reads a key file without any buffer in between.
  Argument_view load_file(const std::string &name) {
    const int file = open(fixture_path(name).c_str(), O_RDONLY | O_CLOEXEC);
    char *start = memory_ + used_;
    const ssize_t got = read(file, start, stage_size - used_ - 1);
    close(file);
    used_ += got < 0 ? 0 : static_cast<std::size_t>(got) + 1;
    return {STRING_RESULT, start, got < 0 ? 0 : static_cast<std::size_t>(got)};
  }

  // A random plaintext.
  Argument_view load_marker() {
    char *start = memory_ + used_;
    EXPECT_EQ(getrandom(start, marker_length, 0), static_cast<ssize_t>(marker_length));
    used_ += marker_length + 1;
    return {STRING_RESULT, start, marker_length};
  }

  // Puts an earlier result up as an argument.
  Argument_view load_bytes(const Raw_result &result) {
    char *start = memory_ + used_;
    std::memcpy(start, result.bytes, result.length);
    used_ += result.length + 1;
    return {STRING_RESULT, start, result.length};
  }

  void wipe() {
    OPENSSL_cleanse(memory_, stage_size);
    used_ = 0;
  }

 private:
  char *memory_;
  std::size_t used_ = 0;
};

// What to look for: pieces from all over a secret.
std::vector<Masked_piece> pieces_of(const char *secret, std::size_t length) {
  constexpr std::size_t distance = 16;
  // The label line of a PEM text is no secret.
  constexpr std::size_t label_length = 32;
  const std::size_t start = length > marker_length ? label_length : 0;
  const std::size_t end = length > marker_length ? length - label_length : length;
  std::vector<Masked_piece> pieces;
  for (std::size_t at = start; at + Masked_piece::length <= end; at += distance) {
    pieces.emplace_back(secret + at);
  }
  return pieces;
}

// Runs work in a thread that stays alive, with all that it left on its stack, until the scan is
// over.
template <typename Work, typename Scan>
void with_stack_kept(Work work, Scan scan) {
  std::atomic<int> turn{0};
  std::thread worker{[&] {
    work();
    turn = 1;
    turn.notify_one();
    turn.wait(1);
  }};
  turn.wait(0);
  scan();
  turn = 2;
  turn.notify_one();
  worker.join();
}

class Secrets : public ::testing::Test {
 protected:
  void SetUp() override {
    if (under_address_sanitizer || under_thread_sanitizer) {
      GTEST_SKIP() << "the sanitizers' shadow memory is too large to scan";
    }
    ASSERT_EQ(component.init(), 0);
  }

  // Calls `function` and scans for the secrets: those in `secret_arguments`, and the result if it
  // is one.
  void expect_no_leftover(const char *function, const std::vector<Argument_view> &arguments,
                          const std::vector<std::size_t> &secret_arguments, bool result_is_secret,
                          Raw_result::Ending ending) {
    std::vector<Masked_piece> pieces;
    for (const std::size_t position : secret_arguments) {
      const auto more = pieces_of(arguments[position].bytes, arguments[position].length);
      pieces.insert(pieces.end(), more.begin(), more.end());
    }
    // The scan itself is trusted only because it finds the secret while the stage still holds it.
    ASSERT_TRUE(pieces.empty() || !find_in_memory(pieces).empty());
    with_stack_kept(
        [&] {
          call(*find_function(function), arguments, *result);
          if (result_is_secret) {
            const auto more = pieces_of(result->bytes, result->length);
            pieces.insert(pieces.end(), more.begin(), more.end());
          }
        },
        [&] {
          EXPECT_EQ(result->ending, ending);
          result->wipe();
          stage.wipe();
          judge(find_in_memory(pieces));
        });
  }

  static void judge(const std::vector<Finding> &findings) {
    std::size_t in_libcrypto = 0;
    for (const Finding &finding : findings) {
      if (libcrypto_arena().contains(finding.address)) {
        ++in_libcrypto;
      } else {
        ADD_FAILURE() << (cxx_arena().contains(finding.address) ? "in C++ memory: " : "elsewhere: ")
                      << std::hex << finding.address << " in " << finding.mapping;
      }
    }
    std::cout << in_libcrypto << " pieces in libcrypto's freed memory\n";
  }

  Stage stage;
  Loaded_component component;
  std::unique_ptr<Raw_result> result = std::make_unique<Raw_result>();
};

using Ending = Raw_result::Ending;

TEST_F(Secrets, PublicHalfOfAKey) {
  expect_no_leftover("create_asymmetric_pub_key", {"RSA", stage.load_file("rsa2048.pem")}, {1},
                     false, Ending::value);
}

TEST_F(Secrets, CreatedKey) {
  expect_no_leftover("create_asymmetric_priv_key", {"RSA", integer<2048>()}, {}, true,
                     Ending::value);
}

TEST_F(Secrets, EncryptedText) {
  expect_no_leftover("asymmetric_encrypt",
                     {"RSA", stage.load_marker(), stage.load_file("rsa2048-public.pem")}, {1},
                     false, Ending::value);
}

TEST_F(Secrets, PrivateKeyTakenForAPublicOne) {
  expect_no_leftover("asymmetric_encrypt",
                     {"RSA", stage.load_marker(), stage.load_file("rsa2048.pem")}, {1, 2}, false,
                     Ending::null);
}

TEST_F(Secrets, DecryptedText) {
  const std::vector<Argument_view> encryption{"RSA", stage.load_marker(),
                                              stage.load_file("rsa2048-public.pem")};
  call(*find_function("asymmetric_encrypt"), encryption, *result);
  const auto ciphertext = std::make_unique<Raw_result>(*result);
  stage.wipe();
  expect_no_leftover("asymmetric_decrypt",
                     {"RSA", stage.load_bytes(*ciphertext), stage.load_file("rsa2048.pem")}, {2},
                     true, Ending::value);
}

TEST_F(Secrets, FailedDecryption) {
  expect_no_leftover("asymmetric_decrypt",
                     {"RSA", "no ciphertext", stage.load_file("rsa2048-traditional.pem")}, {2},
                     false, Ending::null);
}

TEST_F(Secrets, SigningKey) {
  expect_no_leftover("asymmetric_sign",
                     {"RSA", stage.load_marker(), stage.load_file("rsa2048.pem"), "SHA256"}, {1, 2},
                     false, Ending::value);
}

TEST_F(Secrets, DamagedSigningKey) {
  expect_no_leftover(
      "asymmetric_sign",
      {"RSA", stage.load_marker(), stage.load_file("rsa2048-truncated.pem"), "SHA256"}, {1, 2},
      false, Ending::null);
}

TEST_F(Secrets, PrivateKeyGivenToVerify) {
  expect_no_leftover(
      "asymmetric_verify",
      {"RSA", stage.load_marker(), "a signature", stage.load_file("rsa2048.pem"), "SHA256"}, {1, 3},
      false, Ending::null);
}

TEST_F(Secrets, HashedText) {
  expect_no_leftover("create_digest", {"SHA256", stage.load_marker()}, {1}, false, Ending::value);
}

}  // namespace
}  // namespace halvex_test

// The dynamic linker, on the first call of a function, saves all vector registers to the stack, and
// with them what the last memcpy moved. Binding everything at start keeps that out of the picture.
int main(int argc, char **argv) {
  if (std::getenv("LD_BIND_NOW") == nullptr) {
    setenv("LD_BIND_NOW", "1", 1);
    execv("/proc/self/exe", argv);
    return EXIT_FAILURE;
  }
  if (!halvex_test::give_libcrypto_an_arena()) {
    std::cerr << "libcrypto allocated before it got its arena\n";
    return EXIT_FAILURE;
  }
  UI_set_default_method(UI_null());
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
