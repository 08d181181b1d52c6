// The system variables that components have registered: reading and setting them.

#ifndef DOVRIN_HOST_VARIABLES_H
#define DOVRIN_HOST_VARIABLES_H

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "dovrin/system_variable.h"
#include "dovrin_host/registrations.h"
#include "dovrin_host/result.h"

namespace dovrin_host {

// As the SQL engine has it.
using Setting = std::variant<bool, long long, double, std::string>;

// The value as an integer: a boolean is 0 or 1, a real must be whole, a text must be a decimal
// integer from end to end. Nothing if it has none of 64 bits.
std::optional<long long> integer_form(const Setting &setting);

// The value as a boolean: the integers 0 and 1, or the texts ON, OFF, TRUE, FALSE, 1, 0 in any
// letter case. Nothing else.
std::optional<bool> boolean_form(const Setting &setting);

// The value as a person reads it.
std::string text_form(const Setting &setting);

// The record through which a component's check callback reads a setting. It borrows the setting.
class Value_record {
 public:
  explicit Value_record(const Setting &setting) noexcept;
  Value_record(const Value_record &) = delete;
  Value_record &operator=(const Value_record &) = delete;
  ~Value_record() = default;

  // Valid as long as this object.
  st_dovrin_value *get() noexcept { return &layout_.operations; }

 private:
  // The operations come first, so that they find the setting from the address they are given.
  struct Layout {
    st_dovrin_value operations;
    const Setting *setting;
  };

  static const Setting &setting_of(st_dovrin_value *value) noexcept;
  static int value_type(st_dovrin_value *value) noexcept;
  static const char *val_str(st_dovrin_value *value, char *buffer, int *length) noexcept;
  static int val_real(st_dovrin_value *value, double *out) noexcept;
  static int val_int(st_dovrin_value *value, long long *out) noexcept;
  static int is_unsigned(st_dovrin_value *value) noexcept;

  Layout layout_;
};

// A boolean's or an integer's value.
using Variable_value = std::variant<bool, long long>;

// ON or OFF, or the digits.
std::string text_form(const Variable_value &value);

enum class Variable_type { boolean, integer };

// "boolean" or "integer". Static storage.
const char *variable_type_name(Variable_type type) noexcept;

// What a component registers.
struct Variable_definition {
  std::string name;  // the full one: component.variable
  Variable_type type = Variable_type::boolean;
  std::string comment;
  Variable_value default_value;
  long long minimum = 0;            // of an integer
  long long maximum = 0;            // of an integer
  long long block_size = 0;         // of an integer: accepted values are multiples of it
  Sys_var_check check = nullptr;    // null: the server's own
  Sys_var_update update = nullptr;  // null: the server's own
  void *storage = nullptr;          // the component's
};

// A variable and its value at one moment, for display.
struct Variable_info {
  std::string name;
  Variable_value value;
  Variable_type type = Variable_type::boolean;
  Variable_value default_value;
  long long minimum = 0;  // 0 for a boolean, as the next two
  long long maximum = 0;
  long long block_size = 0;
  std::string comment;

  bool operator==(const Variable_info &) const = default;
};

// Names are compared byte by byte. Any thread may call anything at any time. Sets, and reads beside
// them, wait for each other. A component's callback may read variables and report to the error log;
// it may not set or unregister one.
class System_variables {
 public:
  // False if the name is taken or the definition lacks a name or storage. The value in the storage
  // is left as it is. A variable with an owner can be used after publish(owner).
  bool add(Variable_definition definition, Owner owner);

  // Waits for a set that is under way. False if the variable is unknown, or if its own callback
  // asks.
  bool remove(std::string_view name);

  // Passes the value, unclipped, through check and update. A rejected value is a failure that names
  // the variable, the value and what is allowed.
  Status set(std::string_view name, const Setting &setting);

  // Fails if there is no such variable.
  Result<Variable_value> get(std::string_view name) const;

  // All variables in the order of their names.
  std::vector<Variable_info> list() const;

  // Lets everybody use what `owner` registered, or nobody any more.
  void publish(Owner owner);
  void unpublish(Owner owner);

  // Forgets whatever `owner` left behind.
  void drop(Owner owner);

 private:
  // Waits for a set under way, unless the calling thread is inside that set itself.
  std::unique_lock<std::mutex> wait_for_set() const;
  bool is_setting_thread() const;
  std::shared_ptr<const Variable_definition> find(std::string_view name) const;

  // Lock order: set_mutex_, then entries_mutex_. Component code runs under set_mutex_ alone; no
  // service that a callback may use takes it.
  mutable std::mutex set_mutex_;
  std::atomic<std::thread::id> setting_thread_{};
  mutable std::mutex entries_mutex_;  // guards the entries
  Registrations<const Variable_definition> variables_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_VARIABLES_H
