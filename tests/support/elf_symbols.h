// The dynamic symbols of a shared object, read from its file.

#ifndef HALVEX_TESTS_SUPPORT_ELF_SYMBOLS_H
#define HALVEX_TESTS_SUPPORT_ELF_SYMBOLS_H

#include <string>
#include <vector>

namespace halvex_test {

struct Elf_symbol {
  std::string name;
  bool is_defined = false;  // exported, not imported
  bool is_unique = false;   // pins its object in memory after dlclose
};

// Every named symbol of the dynamic symbol table. Aborts if the file is no 64-bit ELF object.
std::vector<Elf_symbol> dynamic_symbols(const std::string &path);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_ELF_SYMBOLS_H
