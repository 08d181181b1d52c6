#include "support/elf_symbols.h"

#include <elf.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace halvex_test {
namespace {

std::string file_bytes(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// One record of the file at a byte offset.
template <typename T>
T record_at(const std::string &file, size_t offset) {
  T record;
  if (offset + sizeof record > file.size()) {
    static_cast<void>(std::fprintf(stderr, "elf_symbols: the file ends too early\n"));
    std::abort();
  }
  std::memcpy(&record, file.data() + offset, sizeof record);
  return record;
}

}  // namespace

std::vector<Elf_symbol> dynamic_symbols(const std::string &path) {
  const std::string file = file_bytes(path);
  const auto header = record_at<Elf64_Ehdr>(file, 0);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
    static_cast<void>(std::fprintf(stderr, "elf_symbols: %s is no ELF object\n", path.c_str()));
    std::abort();
  }
  std::vector<Elf_symbol> symbols;
  for (size_t i = 0; i < header.e_shnum; ++i) {
    const auto section = record_at<Elf64_Shdr>(file, header.e_shoff + i * sizeof(Elf64_Shdr));
    if (section.sh_type != SHT_DYNSYM) {
      continue;
    }
    const auto names =
        record_at<Elf64_Shdr>(file, header.e_shoff + section.sh_link * sizeof(Elf64_Shdr));
    for (size_t offset = 0; offset < section.sh_size; offset += sizeof(Elf64_Sym)) {
      const auto symbol = record_at<Elf64_Sym>(file, section.sh_offset + offset);
      const std::string name = file.c_str() + names.sh_offset + symbol.st_name;
      if (!name.empty()) {
        symbols.push_back(
            {name, symbol.st_shndx != SHN_UNDEF, ELF64_ST_BIND(symbol.st_info) == STB_GNU_UNIQUE});
      }
    }
  }
  return symbols;
}

}  // namespace halvex_test
