#include "support/elf_object.h"

#include <elf.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/fixture.h"

namespace halvex_test {
namespace {

[[noreturn]] void abort_with(const char *why) {
  static_cast<void>(std::fprintf(stderr, "elf_object: %s\n", why));
  std::abort();
}

// One record of the file at a byte offset.
template <typename T>
T record_at(const std::string &file, size_t offset) {
  T record;
  if (offset + sizeof record > file.size()) {
    abort_with("the file ends too early");
  }
  std::memcpy(&record, file.data() + offset, sizeof record);
  return record;
}

std::vector<Elf64_Shdr> sections_of(const std::string &file) {
  const auto header = record_at<Elf64_Ehdr>(file, 0);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
    abort_with("the file is no 64-bit ELF object");
  }
  std::vector<Elf64_Shdr> sections;
  for (size_t i = 0; i < header.e_shnum; ++i) {
    sections.push_back(record_at<Elf64_Shdr>(file, header.e_shoff + i * sizeof(Elf64_Shdr)));
  }
  return sections;
}

}  // namespace

std::vector<Elf_symbol> dynamic_symbols(const std::string &path) {
  const std::string file = file_bytes(path);
  const std::vector<Elf64_Shdr> sections = sections_of(file);
  std::vector<Elf_symbol> symbols;
  for (const Elf64_Shdr &section : sections) {
    if (section.sh_type != SHT_DYNSYM) {
      continue;
    }
    const Elf64_Shdr &names = sections.at(section.sh_link);
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

std::vector<std::string> constant_sections(const std::string &path) {
  const std::string file = file_bytes(path);
  std::vector<std::string> constants;
  for (const Elf64_Shdr &section : sections_of(file)) {
    if ((section.sh_flags & (SHF_ALLOC | SHF_WRITE | SHF_EXECINSTR)) == SHF_ALLOC) {
      constants.push_back(file.substr(section.sh_offset, section.sh_size));
    }
  }
  return constants;
}

}  // namespace halvex_test
