#include "conformance/vector_files.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace halvex_test {

namespace {

std::string trimmed(std::string_view text) {
  const auto is_blank = [](char byte) {
    return std::isspace(static_cast<unsigned char>(byte)) != 0;
  };
  while (!text.empty() && is_blank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && is_blank(text.back())) {
    text.remove_suffix(1);
  }
  return std::string(text);
}

std::vector<std::string> lines_of(const std::filesystem::path &name) {
  std::istringstream file(vector_file(name));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(trimmed(line));
  }
  return lines;
}

bool is_hex(const std::string &line) {
  return !line.empty() && line.find_first_not_of("0123456789abcdefABCDEF \t") == std::string::npos;
}

std::vector<Vector> checked(const std::filesystem::path &name, std::vector<Vector> vectors) {
  if (vectors.empty()) {
    throw std::runtime_error("no vector in " + name.string());
  }
  return vectors;
}

}  // namespace

std::filesystem::path vectors_folder() { return HALVEX_VECTORS_FOLDER; }

std::string vector_file(const std::filesystem::path &name) {
  const auto path = vectors_folder() / name;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path.string() +
                             ": install the package python3-cryptography-vectors");
  }
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<Vector> read_response_file(const std::filesystem::path &name, const std::string &last) {
  std::vector<Vector> vectors;
  Vector values;
  for (std::string line : lines_of(name)) {
    if (line.empty() || line.front() == '#') {
      continue;
    }
    if (line.front() == '[') {
      line = trimmed(std::string_view(line).substr(1, line.size() - 2));
    }
    const auto equals = line.find('=');
    if (equals == std::string::npos) {
      continue;
    }
    const std::string key = trimmed(std::string_view(line).substr(0, equals));
    values[key] = trimmed(std::string_view(line).substr(equals + 1));
    if (key == last) {
      vectors.push_back(values);
    }
  }
  return checked(name, std::move(vectors));
}

std::vector<Vector> read_headed_file(const std::filesystem::path &name, const std::string &restart,
                                     const std::string &last) {
  std::vector<Vector> vectors;
  Vector values;
  std::string heading;
  const auto close_heading = [&] {
    if (heading == last && !values[heading].empty()) {
      vectors.push_back(values);
    }
  };
  for (const std::string &line : lines_of(name)) {
    if (is_hex(line)) {
      if (!heading.empty()) {
        std::copy_if(line.begin(), line.end(), std::back_inserter(values[heading]),
                     [](char byte) { return byte != ' ' && byte != '\t'; });
      }
    } else if (!line.empty()) {
      close_heading();
      heading.clear();
      if (line.front() == '#' && line.back() == ':') {
        heading = trimmed(std::string_view(line).substr(1, line.size() - 2));
        values[heading].clear();
      } else if (line.starts_with(restart)) {
        values.clear();
      }
    }
  }
  close_heading();
  return checked(name, std::move(vectors));
}

std::size_t lines_beginning_with(const std::filesystem::path &name, const std::string &beginning) {
  std::size_t count = 0;
  for (const std::string &line : lines_of(name)) {
    count += line.starts_with(beginning) ? 1 : 0;
  }
  return count;
}

}  // namespace halvex_test
