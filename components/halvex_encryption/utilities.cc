#include "halvex_encryption/utilities.h"

#include <openssl/err.h>

#include <array>
#include <cstdio>
#include <cstring>

namespace halvex_encryption::utilities {

constinit Service_slots service_slots{};

namespace {

constexpr Report_site variable_not_registered{13915, 41, "utilities", "add"};
constexpr Report_site variable_not_unregistered{13916, 58, "utilities", "unregister"};
constexpr Report_site function_not_registered{13917, 83, "utilities", "add_scalar"};
constexpr Report_site function_not_unregistered{13918, 98, "utilities", "unregister"};
constexpr Report_site openssl_error{13928, 118, "utilities", "handle_openssl_error"};

constexpr std::size_t message_capacity = 8192;
constexpr std::size_t openssl_text_capacity = 256;
// Room for a component's and a variable's name; a longer pair is truncated in reports.
constexpr std::size_t full_name_capacity = 512;

constinit const Dovrin_log_builtins *log_builtins = nullptr;
constinit const Dovrin_log_builtins_string *log_builtins_string = nullptr;

const Dovrin_udf_registration &udf_registration() noexcept {
  return *static_cast<const Dovrin_udf_registration *>(service_slots.udf_registration);
}

const Dovrin_sys_variable_register &variable_register() noexcept {
  return *static_cast<const Dovrin_sys_variable_register *>(service_slots.sys_variable_register);
}

const Dovrin_sys_variable_unregister &variable_unregister() noexcept {
  return *static_cast<const Dovrin_sys_variable_unregister *>(
      service_slots.sys_variable_unregister);
}

// Reports a variable by its full name. The name is put together on the stack because variables are
// also unregistered while the object is unloaded, where an exception would end the server.
void report_variable(const Report_site &site, const char *component, const char *name) noexcept {
  std::array<char, full_name_capacity> full_name;
  static_cast<void>(std::snprintf(full_name.data(), full_name.size(), "%s.%s", component, name));
  report(site, static_cast<const char *>(full_name.data()));
}

}  // namespace

void take_log_handles() noexcept {
  log_builtins = static_cast<const Dovrin_log_builtins *>(service_slots.log_builtins);
  log_builtins_string =
      static_cast<const Dovrin_log_builtins_string *>(service_slots.log_builtins_string);
}

LogEvent::LogEvent() noexcept : line_{log_builtins->create_line()}, message_{nullptr} {
  if (line_ == nullptr) {
    return;
  }
  message_ = static_cast<char *>(log_builtins_string->allocate(message_capacity));
  if (message_ == nullptr) {
    log_builtins->release_line(line_);
    line_ = nullptr;
  }
}

LogEvent::~LogEvent() {
  if (line_ != nullptr) {
    log_builtins->submit(line_);
    log_builtins->release_line(line_);
  }
  if (!message_set_ && message_ != nullptr) {
    log_builtins_string->release(message_);
  }
}

LogEvent &LogEvent::priority(int level) noexcept {
  return integer_item(DOVRIN_LOG_PRIORITY, level);
}

LogEvent &LogEvent::error_code(int code) noexcept {
  return integer_item(DOVRIN_LOG_ERROR_CODE, code);
}

LogEvent &LogEvent::component_tag(const char *tag) noexcept {
  return string_item(DOVRIN_LOG_COMPONENT, tag);
}

LogEvent &LogEvent::source_line(int line) noexcept {
  return integer_item(DOVRIN_LOG_SOURCE_LINE, line);
}

LogEvent &LogEvent::source_file(const char *file) noexcept {
  return string_item(DOVRIN_LOG_SOURCE_FILE, file);
}

LogEvent &LogEvent::function(const char *name) noexcept {
  return string_item(DOVRIN_LOG_FUNCTION, name);
}

LogEvent &LogEvent::lookup_quoted(long long code, const char *tag, ...) noexcept {
  message_tag_ = tag;
  const char *message_template = log_builtins->message_template(static_cast<int>(code));
  if (message_template == nullptr || *message_template == '\0') {
    message_template = "invalid error code";
  }
  if (line_ != nullptr && log_builtins->has_item(line_, DOVRIN_LOG_ERROR_CODE) == 0 &&
      log_builtins->has_item(line_, DOVRIN_LOG_ERROR_SYMBOL) == 0) {
    integer_item(DOVRIN_LOG_ERROR_CODE, code);
  }

  va_list arguments;
  va_start(arguments, tag);
  set_message(message_template, arguments);
  va_end(arguments);
  return *this;
}

void LogEvent::set_message(const char *format, va_list arguments) noexcept {
  if (line_ == nullptr) {
    return;
  }

  std::array<char, message_capacity> tagged_format;
  if (message_tag_ != nullptr) {
    static_cast<void>(std::snprintf(tagged_format.data(), tagged_format.size(), "%s: '%s'",
                                    message_tag_, format));
    format = tagged_format.data();
  }

  constexpr std::size_t longest = message_capacity - 1;
  std::size_t length = log_builtins_string->format(message_, message_capacity, format, arguments);
  if (length > longest) {
    constexpr char truncation_mark[] = " <...>";
    std::memcpy(message_ + longest + 1 - sizeof truncation_mark, truncation_mark,
                sizeof truncation_mark);
    length = longest;
  }

  Dovrin_log_item *item =
      log_builtins->add_item_with_key(line_, DOVRIN_LOG_MESSAGE, nullptr, DOVRIN_LOG_FREE_VALUE);
  log_builtins->item_set_lexstring(item, message_, length);
  // Without an item the line has not taken the text: it stays ours to free.
  message_set_ = item != nullptr;
}

LogEvent &LogEvent::integer_item(int type, long long value) noexcept {
  log_builtins->item_set_int(log_builtins->add_item(line_, type), value);
  return *this;
}

LogEvent &LogEvent::string_item(int type, const char *value) noexcept {
  log_builtins->item_set_cstring(log_builtins->add_item(line_, type), value);
  return *this;
}

void handle_openssl_error(const std::string &function_name, const std::string &algorithm) noexcept {
  std::array<char, openssl_text_capacity> text{};
  ERR_error_string(ERR_get_error(), text.data());
  report(openssl_error, function_name.c_str(), algorithm.c_str(),
         static_cast<const char *>(text.data()));
}

UDF_list::~UDF_list() { static_cast<void>(unregister()); }

bool UDF_list::add_scalar(const char *name, Item_result result_type, Udf_func_any row,
                          Udf_func_init init, Udf_func_deinit deinit) {
  // The name is kept first: were it copied after the server accepted the function and memory ran
  // out, the server would go on calling into an unloaded object.
  const auto [position, is_new] = names_.emplace(name);
  if (udf_registration().udf_register(name, result_type, row, init, deinit) == 0) {
    return false;
  }
  report(function_not_registered, name);
  if (is_new) {
    names_.erase(position);
  }
  return true;
}

bool UDF_list::unregister() noexcept {
  for (auto position = names_.begin(); position != names_.end();) {
    int was_registered = 0;
    const int refused = udf_registration().udf_unregister(position->c_str(), &was_registered);
    // A function that the server no longer knows counts as unregistered, whatever the call
    // returned.
    if (refused != 0 && was_registered != 0) {
      report(function_not_unregistered, position->c_str());
      ++position;
    } else {
      position = names_.erase(position);
    }
  }
  return !names_.empty();
}

System_variables_list::~System_variables_list() { static_cast<void>(unregister()); }

bool System_variables_list::add(const char *name, int type_flag, const char *comment,
                                Sys_var_check check, Sys_var_update update, void *limits,
                                void *storage) {
  const auto [position, is_new] = names_.emplace(name);
  if (variable_register().register_variable(component_, name, type_flag, comment, check, update,
                                            limits, storage) == 0) {
    return false;
  }
  report_variable(variable_not_registered, component_, name);
  if (is_new) {
    names_.erase(position);
  }
  return true;
}

bool System_variables_list::unregister() noexcept {
  for (auto position = names_.begin(); position != names_.end();) {
    if (variable_unregister().unregister_variable(component_, position->c_str()) != 0) {
      report_variable(variable_not_unregistered, component_, position->c_str());
      ++position;
    } else {
      position = names_.erase(position);
    }
  }
  return !names_.empty();
}

}  // namespace halvex_encryption::utilities
