// What happens when a process ends with a component installed.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

namespace {

// Runs a command; returns its output and error output, and its exit status.
std::string run(const std::string &command, int &status) {
  std::string output;
  FILE *const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    return output;
  }
  std::array<char, 256> part{};
  while (fgets(part.data(), part.size(), pipe) != nullptr) {
    output += part.data();
  }
  status = pclose(pipe);
  return output;
}

TEST(LateExitTest, ComponentReachesTheServerAfterItsHostIsClosedAndTheProcessEnds) {
  int status = -1;
  const std::string output = run("'" LATE_EXIT_PROGRAM "' '" LATE_EXIT_HOST
                                 "' '" TEST_COMPONENTS_FOLDER "/withdraws_at_unload.so'",
                                 status);
  EXPECT_EQ(output, "late withdrawal: function 0 known 1 variable 0\n");
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
