// The openssl command as an independent reference implementation.

#ifndef HALVEX_TESTS_CONFORMANCE_OPENSSL_COMMAND_H
#define HALVEX_TESTS_CONFORMANCE_OPENSSL_COMMAND_H

#include <optional>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace halvex_test {

// A folder with the files that the command reads, and runs of it.
class Openssl_command {
 public:
  // Writes a file into the folder and returns its path.
  [[nodiscard]] std::string file(const std::string &name, const std::string &bytes) const;

  // Runs `openssl` with these arguments, without input and terminal. Its standard output, or
  // nothing if it ends with another status than 0. Throws std::runtime_error if it cannot be
  // started.
  [[nodiscard]] std::optional<std::string> run(const std::vector<std::string> &arguments) const;

 private:
  Temporary_folder folder_;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_CONFORMANCE_OPENSSL_COMMAND_H
