// The texts of the error codes that a component reports.

#ifndef DOVRIN_HOST_CATALOGUE_H
#define DOVRIN_HOST_CATALOGUE_H

#include <span>

namespace dovrin_host {

// One error code. All texts have static storage and end in a NUL.
struct Catalogue_entry {
  int code;
  const char *symbol;         // the code's name, for programs
  const char *template_text;  // printf conversions fix the order and types of the arguments
  const char *hint;           // one sentence: what the user can do
};

// Returns the entry of `code`, or null if the catalogue has none. Any thread.
const Catalogue_entry *find_catalogue_entry(int code) noexcept;

// All entries in ascending order of their codes. Any thread.
std::span<const Catalogue_entry> catalogue() noexcept;

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_CATALOGUE_H
