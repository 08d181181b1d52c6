// The system variables that components have registered: reading and setting them.

#ifndef DOVRIN_HOST_SYSTEM_VARIABLES_H
#define DOVRIN_HOST_SYSTEM_VARIABLES_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "dovrin/system_variable.h"
#include "dovrin_host/owner.h"
#include "dovrin_host/result.h"
#include "dovrin_host/variable_value.h"

namespace dovrin_host {

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

// Any thread may call anything at any time. Sets, and reads beside them, wait for each other. A
// component's callback may read variables and report to the error log; it may not set or withdraw
// one.
class System_variables {
 public:
  // False if the name is taken or the definition lacks a name or storage. The value in the storage
  // is left as it is. A variable with an owner can be used once the owner is shown.
  bool add(Variable_definition definition, Owner owner);

  // Waits for a set that is under way. False if the variable is unknown, or if its own callback
  // asks.
  bool remove(std::string_view name);

  // Passes the value, unclipped, through check and update. A refused value is a failure that names
  // the variable, the value and what is allowed.
  Status set(std::string_view name, const Setting &setting);

  // Fails if there is no such variable.
  Result<Variable_value> get(std::string_view name) const;

  // All variables in the order of their names.
  std::vector<Variable_info> list() const;

  // Lets everybody use what `owner` registered, or nobody any more.
  void show(Owner owner);
  void hide(Owner owner);

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
  Owned_entries<const Variable_definition> variables_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_SYSTEM_VARIABLES_H
