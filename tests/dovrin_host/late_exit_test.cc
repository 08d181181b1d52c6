// Processes of their own: what happens as one ends with a component installed, or as one begins.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

namespace {

// Runs a shell command that begins with a program of this build; returns its output and its exit
// status.
std::string run(const std::string &command, int &status) {
  std::string output;
  FILE *const pipe = popen((EMULATOR " " + command).c_str(), "r");
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

TEST(LateExit, ComponentReachesTheServerAfterItsHostIsClosedAndTheProcessEnds) {
  int status = -1;
  const std::string output = run("'" LATE_EXIT_PROGRAM "' '" LATE_EXIT_HOST
                                 "' '" TEST_COMPONENTS_FOLDER "/unregisters_at_unload.so' 2>&1",
                                 status);
  EXPECT_EQ(output, "late unregistration: function 0 known 1 variable 0\n");
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// Runs a scenario of host_process_program, which must print nothing and succeed.
void expect_silent_success(const std::string &scenario) {
  int status = -1;
  EXPECT_EQ(run("'" HOST_PROCESS_PROGRAM "' " + scenario + " '" COMPONENT_FILE "' 2>&1", status),
            "");
  ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(LateExit, OpenInstanceLeavesNoRecord) { expect_silent_success("open_instance"); }

TEST(LateExit, RowsInOtherThreadsGoOnWhileTheProcessEnds) {
  for (int i = 0; i < 50; ++i) {
    expect_silent_success("running_threads");
  }
}

TEST(LateExit, UserInterfaceOfTheProgramIsKept) { expect_silent_success("own_interface"); }

TEST(MinimalHost, VerifiesASignatureAndExplainsTheOneThatDoesNotMatch) {
  const std::string command = "'" MINIMAL_HOST "' '" COMPONENT_FILE "'";
  int status = -1;
  EXPECT_EQ(run(command + " 2>/dev/null", status),
            "dovrin::component_halvex_encryption is installed\ntext: 1\nanother text: NULL\n");
  EXPECT_EQ(status, 0);
  const std::string records = run(command + " 2>&1 >/dev/null", status);
  EXPECT_NE(records.find(" error 13928 HALVEX_LIBRARY_ERROR: "), std::string::npos) << records;
}

TEST(MinimalHost, FailureIsASentence) {
  int status = -1;
  EXPECT_EQ(run("'" MINIMAL_HOST "' /nonexistent.so 2>&1", status),
            "There is no component file '/nonexistent.so'.\n");
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
