// Calls of SQL functions with C++ values: one Call_site is one call site of one statement.

#ifndef HALVEX_TESTS_SUPPORT_CALL_SITE_H
#define HALVEX_TESTS_SUPPORT_CALL_SITE_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dovrin/udf.h"
#include "support/raw_call.h"
#include "support/recording_server.h"

namespace halvex_test {

// One SQL argument: its type, and its bytes as the server hands them over (a string's without the
// terminator, or those of a long long or double), or nothing for NULL.
struct Argument {
  Argument() = default;        // a NULL string
  Argument(const char *text);  // implicit, so that calls read like SQL
  Argument(const std::string &s);
  Argument(int number);
  Argument(long long number);
  Argument(double number);

  Item_result type = STRING_RESULT;
  std::optional<std::string> value;
};

Argument null_string();
Argument null_integer();

// What one row gave.
struct Row_result {
  bool is_null = false;
  std::string bytes;      // of a string function, unless null
  long long integer = 0;  // of an integer function
  bool error = false;     // the error flag
  // Of a string function: the returned pointer was the instance's own buffer. False for null.
  bool in_instance_buffer = false;
};

class Call_site {
 public:
  // Runs init with these argument types and values. Every argument lies in heap memory of exactly
  // its size (a string with its terminator), so that the address sanitizer sees each overread.
  Call_site(const Registered_function &function, const std::vector<Argument> &arguments);
  // Runs deinit, also after a rejection.
  ~Call_site();
  Call_site(const Call_site &) = delete;
  Call_site &operator=(const Call_site &) = delete;

  // Init's rejection; nothing if it accepted.
  [[nodiscard]] const std::optional<std::string> &rejection() const { return rejection_; }
  // The function instance. Before init its fields hold values that no function would choose:
  // max_length `unset_length`, decimals 31, const_item true, maybe_null the opposite of what init
  // must set, ptr an address that no deinit may free.
  [[nodiscard]] UDF_INIT &instance() { return *instance_; }

  // Runs the row callback. Aborts after a rejection, and when the callback wrote to the host's own
  // result buffer.
  Row_result row(const std::vector<Argument> &arguments);
  // With the arguments of init.
  Row_result row();

  static constexpr unsigned long unset_length = 77777;

 private:
  struct Arguments;

  Registered_function function_;
  std::vector<Argument> first_arguments_;
  std::unique_ptr<UDF_INIT> instance_;
  std::optional<std::string> rejection_;
};

// What a whole statement of one row gave.
struct Call_result {
  std::optional<std::string> rejection;
  Row_result row;
};

// Runs init, one row unless rejected, and deinit.
Call_result call(const Registered_function &function, const std::vector<Argument> &arguments);
// The same by name, of a function registered with this server.
Call_result call(const Recording_server &server, const std::string &function,
                 const std::vector<Argument> &arguments);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_CALL_SITE_H
