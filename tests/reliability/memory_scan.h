// Looks for secrets in the memory of this process.

#ifndef RELIABILITY_MEMORY_SCAN_H
#define RELIABILITY_MEMORY_SCAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace halvex_test {

// A piece of a secret as long as a scan needs it, kept so that a scan does not find the keeper.
class Masked_piece {
 public:
  static constexpr std::size_t length = 24;

  // Copies `length` bytes.
  explicit Masked_piece(const char *secret);

  // The secret's first two bytes as one number.
  [[nodiscard]] std::uint16_t beginning() const;

  // Whether the secret stands at `memory`, which has at least `length` bytes.
  [[nodiscard]] bool stands_at(const unsigned char *memory) const;

 private:
  std::array<unsigned char, length> masked_{};
};

// Memory of which the holder is known.
struct Region {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;

  [[nodiscard]] bool contains(std::uintptr_t address) const {
    return address >= begin && address < end;
  }
};

struct Finding {
  std::uintptr_t address = 0;
  std::string mapping;  // the line of /proc/self/maps
};

// Every place in this process's writable memory where one of the pieces stands, other threads'
// stacks included. Works without the sanitizers, whose shadow memory is endless.
[[nodiscard]] std::vector<Finding> find_in_memory(const std::vector<Masked_piece> &pieces);

}  // namespace halvex_test

#endif  // RELIABILITY_MEMORY_SCAN_H
