// The seven SQL functions as data: what the tests that hold for all of them go through.

#ifndef HALVEX_TESTS_COMPONENT_SQL_FUNCTIONS_H
#define HALVEX_TESTS_COMPONENT_SQL_FUNCTIONS_H

#include <ostream>
#include <string>
#include <vector>

#include "support/call_site.h"

namespace halvex_test {

// One SQL function with arguments that give a value.
struct Sql_function {
  std::string name;
  Item_result result_type;
  unsigned long buffer_size;  // 0 for none
  // The function named in its records.
  std::string callback;
  std::vector<Argument> arguments;
  // The message of init for an argument of another type, in the order of the arguments.
  std::vector<std::string> type_rejections;
  // The requirement that a record names for a NULL argument, and the line of that record.
  std::string null_requirement;
  long long null_line;
  // The line of the record for an unsupported algorithm; 0 for none.
  long long algorithm_line;
};

// How GoogleTest shows it.
inline void PrintTo(const Sql_function &function, std::ostream *out) { *out << function.name; }

// In the order of registration.
const std::vector<Sql_function> &sql_functions();
const Sql_function &sql_function(const std::string &name);

// Its name without underscores, for the names of tests.
std::string test_name(const Sql_function &function);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_COMPONENT_SQL_FUNCTIONS_H
