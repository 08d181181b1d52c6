// How the records of this library read in the output of a failed test.

#ifndef TESTS_SERVER_PRINTERS_H
#define TESTS_SERVER_PRINTERS_H

#include <ostream>

#include "dovrin_host/function_registry.h"
#include "dovrin_host/log_record.h"
#include "dovrin_host/log_sinks.h"
#include "dovrin_host/system_variables.h"

namespace dovrin_host {

inline void PrintTo(const Log_record &record, std::ostream *out) { *out << render_json(record); }

inline void PrintTo(const Numbered_record &numbered, std::ostream *out) {
  *out << numbered.sequence << ' ' << render_json(numbered.record);
}

inline void PrintTo(const Function_info &info, std::ostream *out) {
  *out << info.name << " type " << info.result_type << " open " << info.open_instances;
}

inline void PrintTo(const Variable_info &info, std::ostream *out) {
  *out << info.name << '=' << text_form(info.value);
}

}  // namespace dovrin_host

#endif  // TESTS_SERVER_PRINTERS_H
