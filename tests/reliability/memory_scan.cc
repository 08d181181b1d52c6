#include "memory_scan.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <charconv>
#include <fstream>
#include <string_view>

namespace halvex_test {
namespace {

constexpr unsigned char mask = 0xA5;
constexpr std::size_t window = std::size_t{1} << 20;

// Where memory is copied to be looked at: whatever it shows lies elsewhere too.
class Scan_window {
 public:
  Scan_window()
      : memory_{static_cast<unsigned char *>(
            mmap(nullptr, window, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))},
        process_memory_{open("/proc/self/mem", O_RDONLY | O_CLOEXEC)} {}
  ~Scan_window() {
    munmap(memory_, window);
    close(process_memory_);
  }
  Scan_window(const Scan_window &) = delete;
  Scan_window &operator=(const Scan_window &) = delete;

  [[nodiscard]] Region region() const {
    const auto begin = reinterpret_cast<std::uintptr_t>(memory_);
    return {begin, begin + window};
  }

  // Copies what lies at `address`; returns how much of it could be read.
  std::size_t load(std::uintptr_t address, std::size_t length) {
    const ssize_t got =
        pread(process_memory_, memory_, std::min(length, window), static_cast<off_t>(address));
    return got < 0 ? 0 : static_cast<std::size_t>(got);
  }

  [[nodiscard]] const unsigned char *at(std::size_t offset) const { return memory_ + offset; }

 private:
  unsigned char *memory_;
  int process_memory_;
};

std::uint16_t two_bytes(const unsigned char *memory) {
  return static_cast<std::uint16_t>(memory[0] << 8 | memory[1]);
}

// Pieces to look for, with a quick answer for memory where none can begin.
class Search_list {
 public:
  explicit Search_list(const std::vector<Masked_piece> &pieces) : pieces_{pieces} {
    for (const Masked_piece &piece : pieces) {
      beginnings_.set(piece.beginning());
    }
  }

  [[nodiscard]] bool any_stands_at(const unsigned char *memory) const {
    return beginnings_.test(two_bytes(memory)) &&
           std::any_of(pieces_.begin(), pieces_.end(),
                       [memory](const Masked_piece &piece) { return piece.stands_at(memory); });
  }

 private:
  const std::vector<Masked_piece> &pieces_;
  std::bitset<65536> beginnings_;
};

void search(const Region &region, const std::string &mapping, const Search_list &pieces,
            Scan_window &scan, std::vector<Finding> &findings) {
  std::uintptr_t address = region.begin;
  while (address < region.end) {
    const std::size_t got = scan.load(address, region.end - address);
    if (got < Masked_piece::length) {
      return;
    }
    for (std::size_t offset = 0; offset + Masked_piece::length <= got; ++offset) {
      if (pieces.any_stands_at(scan.at(offset))) {
        findings.push_back({address + offset, mapping});
      }
    }
    // A piece may lie across two windows.
    address += got < window ? got : got - Masked_piece::length + 1;
  }
}

struct Mapping {
  Region region;
  std::string line;
};

// Reads "7f12-7f34 rw-p ...": the addresses and whether the memory is writable.
bool parse(const std::string &line, Region &region) {
  constexpr int hexadecimal = 16;
  const char *const end = line.data() + line.size();
  const auto begin_parsed = std::from_chars(line.data(), end, region.begin, hexadecimal);
  if (begin_parsed.ptr == end || *begin_parsed.ptr != '-') {
    return false;
  }
  const auto end_parsed = std::from_chars(begin_parsed.ptr + 1, end, region.end, hexadecimal);
  return std::string_view{end_parsed.ptr, end}.starts_with(" rw");
}

std::vector<Mapping> writable_mappings() {
  std::vector<Mapping> mappings;
  std::ifstream maps{"/proc/self/maps"};
  for (std::string line; std::getline(maps, line);) {
    Region region;
    if (parse(line, region)) {
      mappings.push_back({region, line});
    }
  }
  return mappings;
}

}  // namespace

Masked_piece::Masked_piece(const char *secret) {
  for (std::size_t i = 0; i < length; ++i) {
    masked_.at(i) = static_cast<unsigned char>(secret[i]) ^ mask;
  }
}

std::uint16_t Masked_piece::beginning() const {
  const std::array<unsigned char, 2> bytes{static_cast<unsigned char>(masked_[0] ^ mask),
                                           static_cast<unsigned char>(masked_[1] ^ mask)};
  return two_bytes(bytes.data());
}

bool Masked_piece::stands_at(const unsigned char *memory) const {
  std::size_t i = 0;
  while (i < length && (memory[i] ^ mask) == masked_[i]) {
    ++i;
  }
  return i == length;
}

std::vector<Finding> find_in_memory(const std::vector<Masked_piece> &pieces) {
  std::vector<Finding> findings;
  const Search_list list{pieces};
  Scan_window scan;
  for (const Mapping &mapping : writable_mappings()) {
    if (!scan.region().contains(mapping.region.begin)) {
      search(mapping.region, mapping.line, list, scan, findings);
    }
  }
  return findings;
}

}  // namespace halvex_test
