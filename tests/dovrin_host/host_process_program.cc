// A process with a component installed, for what must hold as it ends or before it begins to use
// libcrypto. Arguments: the scenario, the component's file.

#include <openssl/ui.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "dovrin_host/server.h"

namespace {

using dovrin_host::Argument;
using dovrin_host::Function_instance;
using dovrin_host::Server;

constexpr int thread_count = 8;

bool install(const char *component) {
  Server &server = Server::instance();
  server.error_log().add_sink(
      dovrin_host::Line_sink::to_descriptor(STDERR_FILENO, dovrin_host::render_line));
  const dovrin_host::Status status = server.install(component);
  static_cast<void>(std::fputs(status.message().c_str(), stderr));
  return status.ok();
}

const std::array digest_arguments{Argument::string("SHA512"), Argument::string("text")};

auto open_digest() {
  const std::array types{STRING_RESULT, STRING_RESULT};
  return Server::instance().open_function("create_digest", types);
}

// Ends while an instance is open.
int leave_instance_open(const char *component) {
  if (!install(component)) {
    return 1;
  }
  static Function_instance *const open = open_digest().value().release();
  return open->row(digest_arguments).kind == dovrin_host::Row_result::Kind::string ? 0 : 1;
}

// Ends while threads compute rows.
int leave_threads_running(const char *component) {
  if (!install(component)) {
    return 1;
  }
  for (int i = 0; i < thread_count; ++i) {
    std::thread([] {
      // Until the component's destructors have unregistered the function.
      for (auto instance = open_digest(); instance.ok(); instance = open_digest()) {
        for (int row = 0; row < 100; ++row) {
          static_cast<void>(instance.value()->row(digest_arguments));
        }
      }
    }).detach();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return 0;
}

// Has a user interface of its own before the server is made.
int keep_own_interface() {
  UI_METHOD *const own = UI_create_method("own");
  UI_set_default_method(own);
  Server::instance();
  return UI_get_default_method() == own ? 0 : 1;
}

}  // namespace

int main(int count, char **arguments) {
  const std::string_view scenario = count == 3 ? arguments[1] : "";
  if (scenario == "open_instance") {
    return leave_instance_open(arguments[2]);
  }
  if (scenario == "running_threads") {
    return leave_threads_running(arguments[2]);
  }
  return scenario == "own_interface" ? keep_own_interface() : 2;
}
