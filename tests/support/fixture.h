// The key files of tests/fixtures, and other files that a test reads.

#ifndef HALVEX_TESTS_SUPPORT_FIXTURE_H
#define HALVEX_TESTS_SUPPORT_FIXTURE_H

#include <string>

namespace halvex_test {

// The bytes of tests/fixtures/<name>, for instance "rsa2048.pem". Aborts if there is no such file.
std::string fixture(const std::string &name);
// The path of that file.
std::string fixture_path(const std::string &name);

// The bytes of any file of this project, by its path from the top folder. Aborts like fixture().
std::string project_file(const std::string &path);

// The bytes of the file at this path. Aborts like fixture().
std::string file_bytes(const std::string &path);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_FIXTURE_H
