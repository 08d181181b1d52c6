// Runs a fuzzing target once over every file of the folders named on the command line: kept inputs
// become ordinary tests, with any compiler.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "fields.h"

namespace {

std::vector<std::filesystem::path> files_in(const std::string &folder) {
  std::vector<std::filesystem::path> files;
  for (const auto &entry : std::filesystem::directory_iterator(folder)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void replay(const std::filesystem::path &path) {
  // Before the call, so that the output names the input of a crash.
  std::cout << path.string() << std::endl;
  std::ifstream file{path, std::ios::binary};
  const std::string input{std::istreambuf_iterator<char>{file}, std::istreambuf_iterator<char>{}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
}

}  // namespace

int main(int argc, char **argv) {
  std::size_t inputs = 0;
  try {
    for (int i = 1; i < argc; ++i) {
      for (const auto &path : files_in(argv[i])) {
        replay(path);
        ++inputs;
      }
    }
  } catch (const std::exception &error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
  std::cout << inputs << " inputs\n";
  return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
