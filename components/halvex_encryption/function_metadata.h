// The SQL function and the algorithm of one row call, which every object of the call holds for its
// reports.

#ifndef HALVEX_ENCRYPTION_FUNCTION_METADATA_H
#define HALVEX_ENCRYPTION_FUNCTION_METADATA_H

#include <cctype>
#include <string>

namespace halvex_encryption {

// Upper-cases every byte of `text` in place with the platform's toupper. A byte above 127 is passed
// as the negative number that it is as a signed character, which this platform's toupper is made to
// take.
inline void upper_case(std::string &text) noexcept {
  for (char &byte : text) {
    byte = static_cast<char>(std::toupper(static_cast<signed char>(byte)));
  }
}

// Immutable in use; copied and moved freely. May throw std::bad_alloc when copied.
struct Function_metadata {
  // `sql_function` is the SQL name of the function called, `algorithm_argument` the algorithm (for
  // create_digest the digest) as the user gave it.
  Function_metadata(const std::string &sql_function, const std::string &algorithm_argument)
      : function_name{sql_function}, algorithm{algorithm_argument} {
    upper_case(algorithm);
  }

  std::string function_name;
  std::string algorithm;  // upper-cased
};

}  // namespace halvex_encryption

#endif  // HALVEX_ENCRYPTION_FUNCTION_METADATA_H
