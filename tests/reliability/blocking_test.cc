// An encrypted key makes no host wait for a terminal, and the process's signal handlers stay as
// they are, however many threads read such keys at once.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "dovrin_host/functions.h"
#include "dovrin_host/server.h"
#include "support/fixture.h"
#include "support/loaded_component.h"

namespace halvex_test {
namespace {

using dovrin_host::Argument;
using dovrin_host::Server;

constexpr unsigned int patience_seconds = 120;
constexpr int threads = 8;
constexpr int calls_per_thread = 250;

// How the child ends.
enum Verdict { all_well = 0, not_installed = 10, value_came = 11, handler_changed = 12 };

// The signals whose handlers libcrypto's prompt swaps while it asks.
constexpr std::array prompting_signals{SIGINT,  SIGTERM, SIGHUP,  SIGQUIT,
                                       SIGTSTP, SIGTTIN, SIGTTOU, SIGUSR1};

void own_handler(int /*signal_number*/) {}

void set_own_handlers() {
  struct sigaction action {};
  action.sa_handler = own_handler;
  for (const int signal_number : prompting_signals) {
    sigaction(signal_number, &action, nullptr);
  }
}

bool handlers_are_own() {
  bool own = true;
  for (const int signal_number : prompting_signals) {
    struct sigaction action {};
    sigaction(signal_number, nullptr, &action);
    own = own && action.sa_handler == own_handler;
  }
  return own;
}

// Calls one function with an encrypted key again and again; false if a value ever comes.
bool every_row_is_null(const std::string &function, const std::vector<Argument> &arguments) {
  const std::vector<Item_result> types(arguments.size(), STRING_RESULT);
  auto instance = Server::instance().open_function(function, types);
  bool all_null = instance.ok();
  for (int i = 0; all_null && i < calls_per_thread; ++i) {
    all_null = instance.value()->row(arguments) == dovrin_host::Row_result{};
  }
  return all_null;
}

Verdict read_encrypted_keys() {
  auto lease = Server::instance().acquire(component_path());
  if (!lease.ok()) {
    return not_installed;
  }
  set_own_handlers();
  const std::string key = fixture("rsa2048-encrypted.pem");
  const std::string traditional = fixture("rsa2048-encrypted-traditional.pem");
  const std::array<std::vector<Argument>, 2> arguments{
      {{Argument::string("RSA"), Argument::string(key)},
       {Argument::string("RSA"), Argument::string(traditional)}}};

  std::atomic<bool> only_nulls{true};
  std::vector<std::thread> callers;
  callers.reserve(threads);
  for (int caller = 0; caller < threads; ++caller) {
    callers.emplace_back([&, caller] {
      if (!every_row_is_null("create_asymmetric_pub_key",
                             arguments.at(static_cast<std::size_t>(caller) % arguments.size()))) {
        only_nulls = false;
      }
    });
  }
  for (std::thread &caller : callers) {
    caller.join();
  }
  if (!only_nulls) {
    return value_came;
  }
  return handlers_are_own() ? all_well : handler_changed;
}

// What the child writes to its terminal, until it closes it.
std::string read_terminal(int terminal) {
  std::string text;
  std::array<char, 256> block{};
  ssize_t got = 0;
  while ((got = read(terminal, block.data(), block.size())) > 0) {
    text.append(block.data(), static_cast<std::size_t>(got));
  }
  return text;
}

// The child has a terminal of its own on which nobody types.
TEST(Blocking, EncryptedKeysAskNobody) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    alarm(patience_seconds);
    _exit(read_encrypted_keys());
  }
  ASSERT_GT(child, 0);
  const std::string shown = read_terminal(terminal);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  close(terminal);
  EXPECT_EQ(shown, "");
  ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), all_well);
}

}  // namespace
}  // namespace halvex_test
