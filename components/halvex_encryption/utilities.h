// What the rest of the component stands on: the server's services, error-log records, and the two
// lists of what is registered with the server.
//
// Operations that return bool return true on failure.

#ifndef HALVEX_ENCRYPTION_UTILITIES_H
#define HALVEX_ENCRYPTION_UTILITIES_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <type_traits>
#include <unordered_set>

#include "dovrin/services.h"

namespace halvex_encryption::utilities {

// Handles of the server's services: the addresses of their tables of operations.
// Written by the server only; all null until then.
struct Service_slots {
  void *registry;
  void *sys_variable_register;
  void *sys_variable_unregister;
  void *log_builtins;
  void *log_builtins_string;
  void *udf_registration;
};
extern Service_slots service_slots;

// Copies the two log handles out of `service_slots` for all later records. Nothing may be reported
// before. Called once, by init(), before any other thread runs this component's code.
void take_log_handles() noexcept;

// The code, source and priority of a record. A line is fixed where readers of the error log rely on
// it, whatever becomes of the source; elsewhere it is the line of the site in the source.
struct Report_site {
  int code;
  int line;
  const char *source_file;
  const char *function;
  int priority = DOVRIN_PRIORITY_ERROR;
};

// One error-log record under construction. A local object of the reporting statement: made, given
// its items, then its message, and submitted by its destructor. When the server has no line or no
// buffer to give, every operation still runs (the server accepts a null line) and the record is
// dropped. Never throws.
class LogEvent {
 public:
  LogEvent() noexcept;
  ~LogEvent();
  LogEvent(const LogEvent &) = delete;
  LogEvent &operator=(const LogEvent &) = delete;

  // One operation per item, to be called in this order.
  LogEvent &priority(int level) noexcept;
  LogEvent &error_code(int code) noexcept;
  LogEvent &component_tag(const char *tag) noexcept;
  LogEvent &source_line(int line) noexcept;
  LogEvent &source_file(const char *file) noexcept;
  LogEvent &function(const char *name) noexcept;

  // Sets the message: `tag`, a constant string, then the server's template for `code` in single
  // quotes, with the variable arguments substituted.
  LogEvent &lookup_quoted(long long code, const char *tag, ...) noexcept;

  // Formats `format` behind the tag and hands the text to the line. Longer texts than 8191 bytes
  // are truncated and end in " <...>". `arguments` is used up.
  void set_message(const char *format, va_list arguments) noexcept;

 private:
  LogEvent &integer_item(int type, long long value) noexcept;
  LogEvent &string_item(int type, const char *value) noexcept;

  Dovrin_log_line *line_;  // owned until the destructor; null when the server has none
  char *message_;          // the server's memory, owned until the line takes it; null if line_ is
  const char *message_tag_ = nullptr;
  bool message_set_ = false;
};

constexpr const char *message_tag = "Component component_halvex_encryption reported";

// Writes one record for `site`. The arguments fill the conversions of the server's template, so
// they have one of its two forms: texts as `const char *`, numbers as 64-bit integers.
template <typename... Arguments>
void report(const Report_site &site, Arguments... arguments) noexcept {
  static_assert(((std::is_same_v<Arguments, const char *> ||
                  (std::is_integral_v<Arguments> && sizeof(Arguments) == sizeof(long long))) &&
                 ...));
  LogEvent()
      .priority(site.priority)
      .error_code(site.code)
      .component_tag("component:component_halvex_encryption")
      .source_line(site.line)
      .source_file(site.source_file)
      .function(site.function)
      .lookup_quoted(site.code, message_tag, arguments...);
}

// Reports the oldest error of the calling thread's OpenSSL queue and takes it off; newer ones stay
// queued. With an empty queue it reports OpenSSL's text for error 0. `function_name` and
// `algorithm` are the two fields of the call's Function_metadata.
void handle_openssl_error(const std::string &function_name, const std::string &algorithm) noexcept;

// The SQL functions that are registered with the server. Used from init(), deinit() and unloading
// only, so it has no lock.
class UDF_list {
 public:
  UDF_list() = default;
  ~UDF_list();  // unregisters what is left; a refusal is reported and final
  UDF_list(const UDF_list &) = delete;
  UDF_list &operator=(const UDF_list &) = delete;

  // Registers one scalar function. A failure is reported. Throws std::bad_alloc, with nothing
  // registered, when its name cannot be copied.
  [[nodiscard]] bool add_scalar(const char *name, Item_result result_type, Udf_func_any row,
                                Udf_func_init init, Udf_func_deinit deinit);

  // Unregisters every function. One that the server knows and refuses to unregister is reported and
  // stays for the next attempt; true if any does. Allocates nothing.
  [[nodiscard]] bool unregister() noexcept;

 private:
  std::unordered_set<std::string> names_;
};

// The same for system variables.
class System_variables_list {
 public:
  // `component` is not copied and must outlive the list.
  explicit System_variables_list(const char *component) : component_{component} {}
  ~System_variables_list();
  System_variables_list(const System_variables_list &) = delete;
  System_variables_list &operator=(const System_variables_list &) = delete;

  // Registers one variable under its bare `name`; the other arguments go to the server as they are.
  // A failure is reported. Throws std::bad_alloc, with nothing registered, when the name cannot be
  // copied.
  [[nodiscard]] bool add(const char *name, int type_flag, const char *comment, Sys_var_check check,
                         Sys_var_update update, void *limits, void *storage);

  // Unregisters every variable. Unlike for functions, every refusal counts: it is reported and the
  // name stays for the next attempt; true if any does. Allocates nothing.
  [[nodiscard]] bool unregister() noexcept;

 private:
  const char *component_;
  std::unordered_set<std::string> names_;
};

}  // namespace halvex_encryption::utilities

#endif  // HALVEX_ENCRYPTION_UTILITIES_H
