#include "conformance/openssl_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "support/fixture.h"

namespace halvex_test {

namespace {

// Where a child's input and outputs go.
class Redirections {
 public:
  explicit Redirections(const std::string &output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR);
    posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ~Redirections() { posix_spawn_file_actions_destroy(&actions_); }
  Redirections(const Redirections &) = delete;
  Redirections &operator=(const Redirections &) = delete;

  [[nodiscard]] const posix_spawn_file_actions_t *get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

int wait_for(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) {
    throw std::runtime_error("cannot wait for the openssl command");
  }
  return status;
}

}  // namespace

std::string Openssl_command::file(const std::string &name, const std::string &bytes) const {
  const std::string path = folder_ / name;
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  file.close();
  if (!file) {
    throw std::runtime_error("cannot write " + path);
  }
  return path;
}

std::optional<std::string> Openssl_command::run(const std::vector<std::string> &arguments) const {
  std::vector<std::string> words{"openssl"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char *> argv;
  argv.reserve(words.size() + 1);
  for (std::string &word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);

  const std::string output = folder_ / "output";
  const Redirections redirections(output);
  pid_t child = 0;
  if (posix_spawnp(&child, "openssl", redirections.get(), nullptr, argv.data(), environ) != 0) {
    throw std::runtime_error("cannot start the openssl command");
  }
  if (wait_for(child) != 0) {
    return std::nullopt;
  }
  return file_bytes(output);
}

}  // namespace halvex_test
