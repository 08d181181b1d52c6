// A folder of a test's own.

#ifndef HALVEX_TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define HALVEX_TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace halvex_test {

// Created empty, readable by its owner only; removed with everything in it.
class Temporary_folder {
 public:
  Temporary_folder() {
    std::string pattern = std::filesystem::temp_directory_path() / "halvex-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error{"cannot create a folder " + pattern};
    }
    path_ = std::filesystem::canonical(pattern);
  }
  Temporary_folder(const Temporary_folder &) = delete;
  Temporary_folder &operator=(const Temporary_folder &) = delete;
  ~Temporary_folder() { std::filesystem::remove_all(path_); }

  const std::filesystem::path &path() const { return path_; }

  // The path of a file in it.
  std::string operator/(const std::string &name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_TEMPORARY_FOLDER_H
