// What a shared object's file holds. Each function aborts if it is no 64-bit ELF object.

#ifndef HALVEX_TESTS_SUPPORT_ELF_OBJECT_H
#define HALVEX_TESTS_SUPPORT_ELF_OBJECT_H

#include <string>
#include <vector>

namespace halvex_test {

struct Elf_symbol {
  std::string name;
  bool is_defined = false;  // exported, not imported
  bool is_unique = false;   // pins its object in memory after dlclose
};

// Every named symbol of the dynamic symbol table.
std::vector<Elf_symbol> dynamic_symbols(const std::string &path);

// The bytes of each section of constants: what is mapped neither writable nor executable. Sections
// and not segments, because not every processor gets a segment of constants alone.
std::vector<std::string> constant_sections(const std::string &path);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_ELF_OBJECT_H
