// One row in the stand-in server, in OpenSSL's default library context or the thread's small one
// first: both must end alike.

#ifndef HALVEX_TESTS_SUPPORT_HOST_ROWS_H
#define HALVEX_TESTS_SUPPORT_HOST_ROWS_H

#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "dovrin_host/error_log.h"
#include "dovrin_host/functions.h"
#include "dovrin_host/row_context.h"

namespace halvex_test {

// How a row ended.
struct Host_row {
  dovrin_host::Row_result::Kind kind = dovrin_host::Row_result::Kind::null;
  std::string bytes;  // of a string, or the message of an error
  long long integer = 0;
  std::vector<dovrin_host::Log_record> records;  // without times
  bool leaves_errors = false;                    // in OpenSSL's queue

  bool operator==(const Host_row &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Host_row &row);

// Opens the function, which the server must have, and runs one row. A function that does not accept
// the arguments gives an error row. One thread at a time.
Host_row run_host_row(const std::string &function, std::span<const dovrin_host::Argument> arguments,
                      dovrin_host::Small_context_use use);

// One call in both contexts.
struct Both_rows {
  Host_row by_default;
  Host_row small;
  // They are the same but for a value that is random by nature.
  bool alike = false;
};

// Runs the row in the default context, and in the small one first. A DSA key with wrong parameters
// signs for some random numbers and fails for others: then the default context must give, some
// time, what the small one gave.
Both_rows run_in_both_contexts(const std::string &function,
                               std::span<const dovrin_host::Argument> arguments);

// Both, and whether they are alike.
std::ostream &operator<<(std::ostream &out, const Both_rows &rows);

// Sets rsa_support_legacy_padding of the component in the stand-in server. Aborts if there is none.
void set_host_legacy_padding(bool on);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_HOST_ROWS_H
