#include "dovrin_host/system_variables.h"

#include <cstring>
#include <new>
#include <utility>

#include "dovrin_host/exception_text.h"

namespace dovrin_host {
namespace {

// The area that check fills and update reads. The server's own callbacks keep the value itself
// there: an `int` or a `bool`.
struct alignas(void *) Save_area {
  unsigned char bytes[sizeof(void *)] = {};
};

// A component reads its storage on other threads without a lock.
template <typename T>
T load(void *storage) {
  return std::atomic_ref<T>{*static_cast<T *>(storage)}.load(std::memory_order_relaxed);
}

template <typename T>
void store(void *storage, const void *save) {
  T value{};
  std::memcpy(&value, save, sizeof value);
  std::atomic_ref<T>{*static_cast<T *>(storage)}.store(value, std::memory_order_relaxed);
}

Variable_value stored_value(const Variable_definition &variable) {
  if (variable.type == Variable_type::boolean) {
    return load<bool>(variable.storage);
  }
  return static_cast<long long>(load<int>(variable.storage));
}

bool in_limits(const Variable_definition &variable, long long value) {
  return value >= variable.minimum && value <= variable.maximum &&
         (variable.block_size <= 1 || value % variable.block_size == 0);
}

// The server's own check. Returns false to refuse.
bool check_limits(const Variable_definition &variable, const Setting &setting, Save_area &save) {
  if (variable.type == Variable_type::boolean) {
    const std::optional<bool> value = boolean_form(setting);
    if (value) {
      std::memcpy(save.bytes, &*value, sizeof *value);
    }
    return value.has_value();
  }
  const std::optional<long long> value = integer_form(setting);
  if (!value || !in_limits(variable, *value)) {
    return false;
  }
  const int stored = static_cast<int>(*value);
  std::memcpy(save.bytes, &stored, sizeof stored);
  return true;
}

bool check(const Variable_definition &variable, const Setting &setting, Save_area &save) {
  if (variable.check == nullptr) {
    return check_limits(variable, setting, save);
  }
  Value_record record{setting};
  return variable.check(nullptr, nullptr, save.bytes, record.get()) == 0;
}

void update(const Variable_definition &variable, const Save_area &save) {
  if (variable.update != nullptr) {
    variable.update(nullptr, nullptr, variable.storage, save.bytes);
  } else if (variable.type == Variable_type::boolean) {
    store<bool>(variable.storage, save.bytes);
  } else {
    store<int>(variable.storage, save.bytes);
  }
}

std::string allowed_values(const Variable_definition &variable) {
  if (variable.type == Variable_type::boolean) {
    return "ON, OFF, TRUE, FALSE, 1 and 0";
  }
  const std::string range =
      std::to_string(variable.minimum) + " to " + std::to_string(variable.maximum);
  return variable.block_size > 1
             ? "multiples of " + std::to_string(variable.block_size) + " from " + range
             : "integers from " + range;
}

Status refused(const Variable_definition &variable, const Setting &setting) {
  return Status::failure("The system variable " + variable.name + " cannot be set to '" +
                         text_form(setting) + "'. Allowed are " + allowed_values(variable) + ".");
}

Status unknown(std::string_view name) {
  return Status::failure("There is no system variable '" + std::string{name} + "'.");
}

// Says for the whole process which thread is inside a component's callbacks.
class Setting_thread_scope {
 public:
  explicit Setting_thread_scope(std::atomic<std::thread::id> &thread) : thread_{thread} {
    thread_ = std::this_thread::get_id();
  }
  Setting_thread_scope(const Setting_thread_scope &) = delete;
  Setting_thread_scope &operator=(const Setting_thread_scope &) = delete;
  ~Setting_thread_scope() { thread_ = std::thread::id{}; }

 private:
  std::atomic<std::thread::id> &thread_;
};

Status check_and_update(const Variable_definition &variable, const Setting &setting) try {
  Save_area save;
  if (!check(variable, setting, save)) {
    return refused(variable, setting);
  }
  update(variable, save);
  return {};
} catch (const std::bad_alloc &) {
  throw;
} catch (...) {
  return Status::failure("The system variable " + variable.name +
                         " cannot be set: " + current_exception_text() + ".");
}

}  // namespace

std::string text_form(const Variable_value &value) {
  const bool *const boolean = std::get_if<bool>(&value);
  return boolean != nullptr ? text_form(Setting{*boolean})
                            : std::to_string(std::get<long long>(value));
}

const char *variable_type_name(Variable_type type) noexcept {
  return type == Variable_type::boolean ? "boolean" : "integer";
}

bool System_variables::add(Variable_definition definition, Owner owner) {
  if (definition.name.empty() || definition.storage == nullptr) {
    return false;
  }
  std::string name = definition.name;
  auto variable = std::make_shared<const Variable_definition>(std::move(definition));

  const std::lock_guard lock{entries_mutex_};
  return variables_.add(std::move(name), owner, std::move(variable));
}

bool System_variables::remove(std::string_view name) {
  if (is_setting_thread()) {
    return false;
  }
  const std::lock_guard no_set{set_mutex_};
  const std::lock_guard lock{entries_mutex_};
  const bool known = variables_.find(name) != nullptr;
  variables_.erase(name);
  return known;
}

Status System_variables::set(std::string_view name, const Setting &setting) {
  if (is_setting_thread()) {
    return Status::failure("The system variable '" + std::string{name} +
                           "' cannot be set while another one is being set.");
  }
  const std::lock_guard one_set_at_a_time{set_mutex_};
  const std::shared_ptr<const Variable_definition> variable = find(name);
  if (!variable) {
    return unknown(name);
  }
  const Setting_thread_scope scope{setting_thread_};
  return check_and_update(*variable, setting);
}

Result<Variable_value> System_variables::get(std::string_view name) const {
  const std::unique_lock no_set = wait_for_set();
  const std::lock_guard lock{entries_mutex_};
  const std::shared_ptr<const Variable_definition> variable = variables_.find_shown(name);
  if (!variable) {
    return unknown(name);
  }
  return stored_value(*variable);
}

std::vector<Variable_info> System_variables::list() const {
  const std::unique_lock no_set = wait_for_set();
  const std::lock_guard lock{entries_mutex_};
  std::vector<Variable_info> all;
  variables_.for_each_shown([&](const Variable_definition &variable) {
    all.push_back({variable.name, stored_value(variable), variable.type, variable.default_value,
                   variable.minimum, variable.maximum, variable.block_size, variable.comment});
  });
  return all;
}

void System_variables::show(Owner owner) {
  const std::lock_guard lock{entries_mutex_};
  variables_.set_shown(owner, true);
}

void System_variables::hide(Owner owner) {
  const std::lock_guard no_set{set_mutex_};
  const std::lock_guard lock{entries_mutex_};
  variables_.set_shown(owner, false);
}

void System_variables::drop(Owner owner) {
  const std::lock_guard no_set{set_mutex_};
  const std::lock_guard lock{entries_mutex_};
  variables_.erase_all(owner);
}

std::unique_lock<std::mutex> System_variables::wait_for_set() const {
  return is_setting_thread() ? std::unique_lock<std::mutex>{} : std::unique_lock{set_mutex_};
}

bool System_variables::is_setting_thread() const {
  return setting_thread_.load() == std::this_thread::get_id();
}

std::shared_ptr<const Variable_definition> System_variables::find(std::string_view name) const {
  const std::lock_guard lock{entries_mutex_};
  return variables_.find_shown(name);
}

}  // namespace dovrin_host
