// How the records of this library read in the output of a failed test.

#ifndef TESTS_DOVRIN_HOST_PRINTERS_H
#define TESTS_DOVRIN_HOST_PRINTERS_H

#include <ostream>
#include <string_view>

#include "dovrin_host/error_log.h"
#include "dovrin_host/functions.h"
#include "dovrin_host/variables.h"

namespace dovrin_host {

// The rows that tests expect.
inline Row_result string_result(std::string_view bytes) {
  return {.kind = Row_result::Kind::string, .text = bytes};
}
inline Row_result integer_result(long long value) {
  return {.kind = Row_result::Kind::integer, .integer = value};
}
inline Row_result error_result(std::string_view sentence) {
  return {.kind = Row_result::Kind::error, .text = sentence};
}

inline void PrintTo(const Log_record &record, std::ostream *out) { *out << render_json(record); }

inline void PrintTo(const Numbered_record &numbered, std::ostream *out) {
  *out << numbered.sequence << ' ' << render_json(numbered.record);
}

inline void PrintTo(const Function_info &info, std::ostream *out) {
  *out << info.name << " type " << info.result_type;
}

inline void PrintTo(const Row_result &result, std::ostream *out) {
  switch (result.kind) {
    case Row_result::Kind::null:
      *out << "null";
      break;
    case Row_result::Kind::string:
      *out << "string '" << result.text << '\'';
      break;
    case Row_result::Kind::integer:
      *out << "integer " << result.integer;
      break;
    case Row_result::Kind::error:
      *out << "error '" << result.text << '\'';
      break;
  }
}

inline void PrintTo(const Variable_info &info, std::ostream *out) {
  *out << info.name << '=' << text_form(info.value);
}

}  // namespace dovrin_host

#endif  // TESTS_DOVRIN_HOST_PRINTERS_H
