// The openssl command as an independent reference implementation.

#ifndef HALVEX_TESTS_CONFORMANCE_OPENSSL_COMMAND_H
#define HALVEX_TESTS_CONFORMANCE_OPENSSL_COMMAND_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace halvex_test {

// A folder of the test's own with the files that the command reads; removed with its content.
class Openssl_command {
 public:
  // Throws std::runtime_error if the folder cannot be made.
  Openssl_command();
  ~Openssl_command();
  Openssl_command(const Openssl_command &) = delete;
  Openssl_command &operator=(const Openssl_command &) = delete;

  // Writes a file into the folder and returns its path.
  [[nodiscard]] std::string file(const std::string &name, const std::string &bytes) const;

  // Runs `openssl` with these arguments, without input and terminal. Its standard output, or
  // nothing if it ends with another status than 0. Throws std::runtime_error if it cannot be
  // started.
  [[nodiscard]] std::optional<std::string> run(const std::vector<std::string> &arguments) const;

 private:
  std::filesystem::path folder_;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_CONFORMANCE_OPENSSL_COMMAND_H
