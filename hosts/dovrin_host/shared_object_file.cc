#include "dovrin_host/shared_object_file.h"

#include <elf.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>

namespace dovrin_host {
namespace {

// Reads a header at an offset; nothing if the file does not hold all of it.
template <typename Header>
std::optional<Header> read_at(std::ifstream &file, std::uint64_t offset) {
  Header header{};
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(reinterpret_cast<char *>(&header), sizeof header);
  return file ? std::optional{header} : std::nullopt;
}

bool is_64_bit_elf(const Elf64_Ehdr &header) {
  return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
         header.e_ident[EI_CLASS] == ELFCLASS64;
}

bool lies_within(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
  return offset <= size && length <= size - offset;
}

}  // namespace

bool is_cut_off(const std::string &path) {
  std::ifstream file{path, std::ios::binary | std::ios::ate};
  const auto end = file.tellg();
  if (!file || end < 0) {
    return false;
  }
  const auto size = static_cast<std::uint64_t>(end);
  const auto header = read_at<Elf64_Ehdr>(file, 0);
  if (!header || !is_64_bit_elf(*header)) {
    return false;
  }

  // The table of sections usually ends the file.
  if (!lies_within(header->e_shoff, std::uint64_t{header->e_shnum} * sizeof(Elf64_Shdr), size)) {
    return true;
  }
  for (std::uint64_t i = 0; i < header->e_phnum; ++i) {
    const auto segment = read_at<Elf64_Phdr>(file, header->e_phoff + i * sizeof(Elf64_Phdr));
    if (!segment || !lies_within(segment->p_offset, segment->p_filesz, size)) {
      return true;
    }
  }
  return false;
}

}  // namespace dovrin_host
