// Readers for published test vectors, which stay in the package that brings them.
//
// Nothing here skips: a file that is missing, or that yields no vector, throws, and so fails its
// test.

#ifndef HALVEX_TESTS_CONFORMANCE_VECTOR_FILES_H
#define HALVEX_TESTS_CONFORMANCE_VECTOR_FILES_H

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace halvex_test {

// The values of one vector by name, as text.
using Vector = std::map<std::string, std::string>;

// Folder of the vectors of the Debian package python3-cryptography-vectors.
std::filesystem::path vectors_folder();

// The whole file below `vectors_folder()`. Throws std::runtime_error if it cannot be read.
std::string vector_file(const std::filesystem::path &name);

// Vectors of a file of "name = value" lines. A vector ends with the value called `last`; every
// value holds for the following vectors too, until it is given again. A line "[name = value]" is a
// value.
std::vector<Vector> read_response_file(const std::filesystem::path &name, const std::string &last);

// Vectors of a file of "# Name:" headings, each followed by lines of hexadecimal bytes. A vector
// ends with the value called `last`. The headings up to `last` in a block that starts with
// `restart` replace all earlier values.
std::vector<Vector> read_headed_file(const std::filesystem::path &name, const std::string &restart,
                                     const std::string &last);

// How many lines of the file start with `beginning`: counts vectors without reading them.
std::size_t lines_beginning_with(const std::filesystem::path &name, const std::string &beginning);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_CONFORMANCE_VECTOR_FILES_H
