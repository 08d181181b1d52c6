#include "dovrin_host/variables.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <new>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

#include "dovrin_host/user_text.h"

namespace dovrin_host {
namespace {

// Parses all of `text`, or nothing.
template <typename Number>
std::optional<Number> whole_number(std::string_view text) {
  Number number{};
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end) {
    return std::nullopt;
  }
  return number;
}

std::optional<long long> integer_of_real(double real) {
  constexpr double bound = 9223372036854775808.0;  // 2 to the 63rd power
  const bool whole = real >= -bound && real < bound && std::trunc(real) == real;
  return whole ? std::optional{static_cast<long long>(real)} : std::nullopt;
}

std::string text_of_real(double real) {
  std::array<char, 64> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), real);
  return error == std::errc{} ? std::string{text.data(), end} : std::string{};
}

struct Boolean_word {
  const char *word;
  bool value;
};

constexpr std::array boolean_words{
    Boolean_word{"ON", true},     Boolean_word{"OFF", false}, Boolean_word{"TRUE", true},
    Boolean_word{"FALSE", false}, Boolean_word{"1", true},    Boolean_word{"0", false},
};

std::optional<bool> boolean_of_text(const std::string &text) {
  const auto *const found = std::ranges::find_if(boolean_words, [&](const Boolean_word &entry) {
    return text.size() == std::strlen(entry.word) && strcasecmp(text.c_str(), entry.word) == 0;
  });
  return found != boolean_words.end() ? std::optional{found->value} : std::nullopt;
}

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

// The server's own check. Returns false to reject.
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

Status rejected(const Variable_definition &variable, const Setting &setting) {
  return Status::failure("The system variable " + variable.name + " cannot be set to '" +
                         make_excerpt(text_form(setting)) + "'. Allowed are " +
                         allowed_values(variable) + ".");
}

// Characters of a name in an error text.
constexpr std::size_t longest_name = 128;

Status unknown(std::string_view name) {
  return Status::failure("There is no system variable '" + make_excerpt(name, longest_name) + "'.");
}

// Which thread of the process is inside a component's callbacks.
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
    return rejected(variable, setting);
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

std::optional<long long> integer_form(const Setting &setting) {
  if (const bool *const boolean = std::get_if<bool>(&setting)) {
    return *boolean ? 1 : 0;
  }
  if (const double *const real = std::get_if<double>(&setting)) {
    return integer_of_real(*real);
  }
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    return whole_number<long long>(*text);
  }
  return std::get<long long>(setting);
}

std::optional<bool> boolean_form(const Setting &setting) {
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    return boolean_of_text(*text);
  }
  switch (integer_form(setting).value_or(-1)) {
    case 0:
      return false;
    case 1:
      return true;
    default:
      return std::nullopt;
  }
}

std::string text_form(const Setting &setting) {
  if (const bool *const boolean = std::get_if<bool>(&setting)) {
    return *boolean ? "ON" : "OFF";
  }
  if (const double *const real = std::get_if<double>(&setting)) {
    return text_of_real(*real);
  }
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    return *text;
  }
  return std::to_string(std::get<long long>(setting));
}

Value_record::Value_record(const Setting &setting) noexcept
    : layout_{{value_type, val_str, val_real, val_int, is_unsigned}, &setting} {
  static_assert(std::is_standard_layout_v<Layout>);
}

const Setting &Value_record::setting_of(st_dovrin_value *value) noexcept {
  return *reinterpret_cast<Layout *>(value)->setting;
}

int Value_record::value_type(st_dovrin_value *value) noexcept {
  const Setting &setting = setting_of(value);
  if (std::holds_alternative<std::string>(setting)) {
    return DOVRIN_VALUE_STRING;
  }
  return std::holds_alternative<double>(setting) ? DOVRIN_VALUE_REAL : DOVRIN_VALUE_INTEGER;
}

// `*length` is the buffer's size before and the text's length after the call. Null if there is no
// room for the text and its NUL.
const char *Value_record::val_str(st_dovrin_value *value, char *buffer, int *length) noexcept try {
  const std::string text = text_form(setting_of(value));
  if (*length <= 0 || text.size() >= static_cast<std::size_t>(*length)) {
    return nullptr;
  }
  std::ranges::copy(text, buffer);
  buffer[text.size()] = '\0';
  *length = static_cast<int>(text.size());
  return buffer;
} catch (...) {
  return nullptr;
}

int Value_record::val_real(st_dovrin_value *value, double *out) noexcept {
  const Setting &setting = setting_of(value);
  if (const double *const real = std::get_if<double>(&setting)) {
    *out = *real;
    return 0;
  }
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    const std::optional<double> number = whole_number<double>(*text);
    *out = number.value_or(*out);
    return number ? 0 : 1;
  }
  *out = static_cast<double>(*integer_form(setting));
  return 0;
}

int Value_record::val_int(st_dovrin_value *value, long long *out) noexcept {
  const std::optional<long long> number = integer_form(setting_of(value));
  *out = number.value_or(*out);
  return number ? 0 : 1;
}

int Value_record::is_unsigned(st_dovrin_value * /*value*/) noexcept { return 0; }

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
    return Status::failure("The system variable '" + make_excerpt(name, longest_name) +
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
  const std::shared_ptr<const Variable_definition> variable = variables_.find_published(name);
  if (!variable) {
    return unknown(name);
  }
  return stored_value(*variable);
}

std::vector<Variable_info> System_variables::list() const {
  const std::unique_lock no_set = wait_for_set();
  const std::lock_guard lock{entries_mutex_};
  std::vector<Variable_info> all;
  variables_.for_each_published([&](const Variable_definition &variable) {
    all.push_back({variable.name, stored_value(variable), variable.type, variable.default_value,
                   variable.minimum, variable.maximum, variable.block_size, variable.comment});
  });
  return all;
}

void System_variables::publish(Owner owner) {
  const std::lock_guard lock{entries_mutex_};
  variables_.publish(owner);
}

void System_variables::unpublish(Owner owner) {
  const std::lock_guard no_set{set_mutex_};
  const std::lock_guard lock{entries_mutex_};
  variables_.unpublish(owner);
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
  return variables_.find_published(name);
}

}  // namespace dovrin_host
