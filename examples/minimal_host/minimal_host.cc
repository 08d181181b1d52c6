// A whole host: installs the component, creates a key pair and checks a signature.
//
// Usage: minimal_host COMPONENT_FILE

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "dovrin_host/server.h"

namespace {

using dovrin_host::Argument;
using dovrin_host::Row_result;
using dovrin_host::Server;
using dovrin_host::Status;

void require(const Status &status) {
  if (!status.ok()) {
    throw std::runtime_error(status.message());
  }
}

// One statement with one call site and one row. An engine keeps the instance for all rows.
std::string call(const char *function, const std::vector<Argument> &arguments) {
  std::vector<Item_result> types;
  std::ranges::transform(arguments, std::back_inserter(types), &Argument::type);
  auto instance = Server::instance().open_function(function, types);
  require(instance.status());

  const Row_result row = instance.value()->row(arguments);
  switch (row.kind) {
    case Row_result::Kind::string:
      return std::string{row.text};
    case Row_result::Kind::integer:
      return std::to_string(row.integer);
    case Row_result::Kind::null:
      return "NULL";
    case Row_result::Kind::error:
      break;
  }
  throw std::runtime_error(std::string{row.text});
}

void run(const char *component_file) {
  Server &server = Server::instance();
  server.error_log().add_sink(
      dovrin_host::Line_sink::to_descriptor(STDERR_FILENO, dovrin_host::render_line));
  auto component = server.acquire(component_file);
  require(component.status());
  for (const dovrin_host::Component_info &installed : server.components()) {
    static_cast<void>(std::printf("%s is installed\n", installed.name.c_str()));
  }
  require(server.variables().set("component_halvex_encryption.maximum_rsa_key_size", 2048LL));

  const Argument rsa = Argument::string("RSA");
  const Argument sha256 = Argument::string("SHA256");
  const Argument text = Argument::string("text");
  const std::string private_key =
      call("create_asymmetric_priv_key", {rsa, Argument::integer(2048)});
  const std::string public_key =
      call("create_asymmetric_pub_key", {rsa, Argument::string(private_key)});
  const std::string signature =
      call("asymmetric_sign", {rsa, text, Argument::string(private_key), sha256});

  for (const char *const content : {"text", "another text"}) {
    const std::string verified =
        call("asymmetric_verify", {rsa, Argument::string(content), Argument::string(signature),
                                   Argument::string(public_key), sha256});
    static_cast<void>(std::printf("%s: %s\n", content, verified.c_str()));
  }
}

}  // namespace

int main(int count, char **arguments) try {
  if (count != 2) {
    static_cast<void>(std::fputs("usage: minimal_host COMPONENT_FILE\n", stderr));
    return 2;
  }
  run(arguments[1]);
  return 0;
} catch (const std::exception &error) {
  static_cast<void>(std::fprintf(stderr, "%s\n", error.what()));
  return 1;
}
