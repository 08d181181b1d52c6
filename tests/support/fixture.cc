#include "support/fixture.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace halvex_test {

std::string fixture(const std::string &name) { return project_file("tests/fixtures/" + name); }

std::string fixture_path(const std::string &name) {
  return std::string(HALVEX_PROJECT_FOLDER) + "/tests/fixtures/" + name;
}

std::string project_file(const std::string &path) {
  return file_bytes(std::string(HALVEX_PROJECT_FOLDER) + "/" + path);
}

std::string file_bytes(const std::string &path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  if (!file || !bytes) {
    static_cast<void>(std::fprintf(stderr, "Cannot read %s\n", path.c_str()));
    std::abort();
  }
  return bytes.str();
}

}  // namespace halvex_test
