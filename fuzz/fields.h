// How a fuzzing input is split into the arguments of a call. Seeds can be read and written by hand:
// fields are separated by a line that holds only the ASCII record separator (0x1E), and the first
// byte of a field is its kind:
//
//   s...  a string: the rest of the field
//   i...  an integer: the rest as a decimal number
//   r     a real
//   n     a NULL string
//   m     a NULL integer
//
// A field that starts otherwise, or is empty, is a string as a whole.

#ifndef HALVEX_FUZZ_FIELDS_H
#define HALVEX_FUZZ_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace halvex_fuzz {

inline constexpr std::string_view field_separator = "\n\x1e\n";

// The fields of an input, at most `most` of them: what follows is part of the last one.
inline std::vector<std::string_view> split_fields(std::string_view input, std::size_t most) {
  std::vector<std::string_view> fields;
  while (fields.size() + 1 < most) {
    const std::size_t end = input.find(field_separator);
    if (end == std::string_view::npos) {
      break;
    }
    fields.push_back(input.substr(0, end));
    input.remove_prefix(end + field_separator.size());
  }
  fields.push_back(input);
  return fields;
}

// A copy in heap memory of exactly the text's size and a terminator, so that the address sanitizer
// sees every byte read beyond.
class Exact_copy {
 public:
  explicit Exact_copy(std::string_view text)
      : bytes_{std::make_unique<char[]>(text.size() + 1)}, length_{text.size()} {
    if (!text.empty()) {
      std::memcpy(bytes_.get(), text.data(), text.size());
    }
  }
  [[nodiscard]] const char *data() const { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const { return length_; }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t length_;
};

// Ends the process, which the fuzzer counts as a finding, unless `holds`.
inline void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace halvex_fuzz

// What libFuzzer calls, and the replay of kept inputs too.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

#endif  // HALVEX_FUZZ_FIELDS_H
