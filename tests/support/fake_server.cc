#include "support/fake_server.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

struct Dovrin_log_item {
  int type = 0;
  unsigned int flags = 0;
  const char *setter = "";
  long long number = 0;
  const char *text = nullptr;  // read when the line is submitted, as a server does
  size_t length = 0;
};

struct Dovrin_log_line {
  std::vector<std::unique_ptr<Dovrin_log_item>> items;
};

namespace halvex_test {
namespace {

Fake_server *the_server = nullptr;

constexpr size_t canary_length = 16;
constexpr unsigned char canary = 0xC3;
constexpr unsigned char fresh = 0xA5;  // what a new buffer holds, so that nobody counts on zeros

[[noreturn]] void give_up(const std::string &why) {
  static_cast<void>(std::fprintf(stderr, "Fake_server: %s\n", why.c_str()));
  std::abort();
}

Fake_server &server() {
  if (the_server == nullptr) {
    give_up("a service was called while no server exists");
  }
  return *the_server;
}

template <typename Named>
void erase_named(std::vector<Named> &list, const std::string &name) {
  list.erase(std::remove_if(list.begin(), list.end(),
                            [&](const Named &entry) { return entry.name == name; }),
             list.end());
}

template <typename Named>
Named find_named(const std::vector<Named> &list, const std::string &name) {
  for (const Named &entry : list) {
    if (entry.name == name) {
      return entry;
    }
  }
  give_up("nothing registered under the name " + name);
}

std::vector<int> copy_limits(int type_flag, const void *limits) {
  if (type_flag == DOVRIN_VARIABLE_INT) {
    const auto *integers = static_cast<const Dovrin_int_limits *>(limits);
    return {integers->default_value, integers->minimum, integers->maximum, integers->block_size};
  }
  return {*static_cast<const unsigned char *>(limits)};
}

std::map<int, std::optional<std::string>> test_catalogue() {
  return {{13915, "%s"},
          {13916, "%s"},
          {13917, "%s"},
          {13918, "%s"},
          {13919, "%s | %s"},
          {13920, "%s | %s"},
          {13921, "%llu | %s | %s | %lld | %lld"},
          {13922, "%lld | %s | %s"},
          {13923, "%s | %s"},
          {13924, "%llu | %s | %s | %lld"},
          {13925, "%s | %s | %llu"},
          {13926, "%s | %s | %llu"},
          {13927, "%s | %s | %s"},
          {13928, "%s | %s | %s"},
          {13929, "%s | %s | %llu | %llu"}};
}

const char *mark_of_null(const void *pointer) { return pointer == nullptr ? " (null)" : ""; }

Raw_item raw_item(const Dovrin_log_item &item) {
  Raw_item raw{item.type, {}, item.setter, item.flags};
  if (raw.setter == "item_set_int") {
    raw.value = item.number;
  } else if (!raw.setter.empty()) {
    raw.value = std::string(item.text, item.length);
  }
  return raw;
}

// Keeps the default when the item holds another kind of value.
template <typename Value>
void take(const Raw_item &item, Value &out) {
  if (const auto *value = std::get_if<Value>(&item.value)) {
    out = *value;
  }
}

Record record_from(const std::vector<Raw_item> &items) {
  Record record;
  for (const Raw_item &item : items) {
    switch (item.type) {
      case DOVRIN_LOG_PRIORITY:
        take(item, record.priority);
        break;
      case DOVRIN_LOG_ERROR_CODE:
        take(item, record.code);
        break;
      case DOVRIN_LOG_COMPONENT:
        take(item, record.component);
        break;
      case DOVRIN_LOG_SOURCE_LINE:
        take(item, record.line);
        break;
      case DOVRIN_LOG_SOURCE_FILE:
        take(item, record.file);
        break;
      case DOVRIN_LOG_FUNCTION:
        take(item, record.function);
        break;
      case DOVRIN_LOG_MESSAGE:
        take(item, record.message);
        break;
      default:
        give_up("a record has an item of unknown type " + std::to_string(item.type));
    }
  }
  return record;
}

void check_canary(const void *memory, size_t size) {
  const auto *end = static_cast<const unsigned char *>(memory) + size;
  if (!std::all_of(end, end + canary_length, [](unsigned char byte) { return byte == canary; })) {
    give_up("a message buffer was written past its end");
  }
}

}  // namespace

struct Fake_server::Operations {
  static int acquire(const char *name, void **handle) {
    *handle = service(name);
    return *handle == nullptr ? 1 : 0;
  }
  static int acquire_related(const char *name, void * /*related*/, void **handle) {
    return acquire(name, handle);
  }
  static int release_handle(void * /*handle*/) { return 0; }

  static int register_function(const char *name, Item_result type, Udf_func_any row,
                               Udf_func_init init, Udf_func_deinit deinit) {
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    self.registration_calls_.push_back("register_function " + std::string(name));
    if (self.refused_functions_.contains(name)) {
      return 1;
    }
    self.functions_.push_back({name, type, row, init, deinit});
    return 0;
  }

  static int withdraw_function(const char *name, int *was_registered) {
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    self.registration_calls_.push_back("withdraw_function " + std::string(name));
    const auto refusal = self.refused_function_withdrawals_.find(name);
    if (refusal != self.refused_function_withdrawals_.end()) {
      *was_registered = refusal->second;
      return 1;
    }
    const size_t before = self.functions_.size();
    erase_named(self.functions_, name);
    *was_registered = self.functions_.size() == before ? 0 : 1;
    return *was_registered == 0 ? 1 : 0;
  }

  static int register_variable(const char *component, const char *name, int type_flag,
                               const char *comment, Sys_var_check check, Sys_var_update update,
                               void *limits, void *storage) {
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    self.registration_calls_.push_back("register_variable " + std::string(component) + "." + name);
    if (self.refused_variables_.contains(name)) {
      return 1;
    }
    self.variables_.push_back({component, name, type_flag, comment, check, update,
                               copy_limits(type_flag, limits), storage});
    return 0;
  }

  static int withdraw_variable(const char *component, const char *name) {
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    self.registration_calls_.push_back("withdraw_variable " + std::string(component) + "." + name);
    if (self.refused_variable_withdrawals_.contains(name)) {
      return 1;
    }
    const size_t before = self.variables_.size();
    erase_named(self.variables_, name);
    return self.variables_.size() == before ? 1 : 0;
  }

  static int item_set_int(Dovrin_log_item *item, long long value) {
    note("item_set_int " + std::to_string(value) + mark_of_null(item));
    if (item == nullptr) {
      return 1;
    }
    item->setter = "item_set_int";
    item->number = value;
    return 0;
  }

  static int item_set_lexstring(Dovrin_log_item *item, const char *text, size_t length) {
    note("item_set_lexstring" + std::string(mark_of_null(item)));
    return set_text(item, "item_set_lexstring", text, length);
  }

  static int item_set_cstring(Dovrin_log_item *item, const char *text) {
    note("item_set_cstring " + std::string(text) + mark_of_null(item));
    return set_text(item, "item_set_cstring", text, std::strlen(text));
  }

  static Dovrin_log_item *add_item_with_key(Dovrin_log_line *line, int type, const char *key,
                                            unsigned int flags) {
    note("add_item_with_key " + std::to_string(type) + (key == nullptr ? "" : " keyed") +
         " flags " + std::to_string(flags) + mark_of_null(line));
    return add(line, type, flags);
  }

  static Dovrin_log_item *add_item(Dovrin_log_line *line, int type) {
    note("add_item " + std::to_string(type) + mark_of_null(line));
    return add(line, type, 0);
  }

  static Dovrin_log_line *create_line() {
    note("create_line");
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    if (self.refuse_lines_) {
      return nullptr;
    }
    auto line = std::make_unique<Dovrin_log_line>();
    self.lines_.insert(line.get());
    return line.release();
  }

  static void release_line(Dovrin_log_line *line) {
    note("release_line" + std::string(mark_of_null(line)));
    if (line == nullptr) {
      return;
    }
    const std::unique_ptr<Dovrin_log_line> owner(line);
    {
      Fake_server &self = server();
      const std::lock_guard lock(self.mutex_);
      if (self.lines_.erase(line) != 1) {
        give_up("a log line was released twice");
      }
    }
    for (const auto &item : line->items) {
      if (item->flags == DOVRIN_LOG_FREE_VALUE) {
        forget_buffer(const_cast<char *>(item->text));  // NOLINT: given over by the component
      }
    }
  }

  static int has_item(Dovrin_log_line *line, int type) {
    note("has_item " + std::to_string(type) + mark_of_null(line));
    if (line == nullptr) {
      return 0;
    }
    return std::any_of(line->items.begin(), line->items.end(),
                       [&](const auto &item) { return item->type == type; })
               ? 1
               : 0;
  }

  static int submit(Dovrin_log_line *line) {
    note("submit" + std::string(mark_of_null(line)));
    if (line == nullptr) {
      return 1;
    }
    std::vector<Raw_item> items;
    items.reserve(line->items.size());
    for (const auto &item : line->items) {
      items.push_back(raw_item(*item));
    }
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    self.records_.push_back(record_from(items));
    self.raw_records_.push_back(std::move(items));
    return 0;
  }

  static const char *message_template(int code) {
    note("message_template " + std::to_string(code));
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    const auto found = self.templates_.find(code);
    return found == self.templates_.end() || !found->second ? nullptr : found->second->c_str();
  }

  static void *allocate(size_t size) {
    note("allocate " + std::to_string(size));
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    if (self.refuse_buffers_) {
      return nullptr;
    }
    void *memory = std::malloc(size + canary_length);
    if (memory == nullptr) {
      give_up("out of memory");
    }
    std::memset(memory, fresh, size);
    std::memset(static_cast<char *>(memory) + size, canary, canary_length);
    self.buffers_.emplace(memory, size);
    return memory;
  }

  static void release_buffer(void *memory) {
    note("free" + std::string(mark_of_null(memory)));
    forget_buffer(memory);
  }

  static size_t format(char *buffer, size_t size, const char *format, va_list arguments)
      __attribute__((format(printf, 3, 0))) {
    note("format " + std::to_string(size));
    const int needed = std::vsnprintf(buffer, size, format, arguments);
    if (needed < 0) {
      give_up("a message could not be formatted");
    }
    return static_cast<size_t>(needed);
  }

 private:
  static void note(std::string call) {
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    self.log_calls_.push_back(std::move(call));
  }

  static int set_text(Dovrin_log_item *item, const char *setter, const char *text, size_t length) {
    if (item == nullptr) {
      return 1;
    }
    item->setter = setter;
    item->text = text;
    item->length = length;
    return 0;
  }

  static Dovrin_log_item *add(Dovrin_log_line *line, int type, unsigned int flags) {
    if (line == nullptr) {
      return nullptr;
    }
    line->items.push_back(std::make_unique<Dovrin_log_item>());
    line->items.back()->type = type;
    line->items.back()->flags = flags;
    return line->items.back().get();
  }

  static void forget_buffer(void *memory) {
    if (memory == nullptr) {
      return;
    }
    Fake_server &self = server();
    const std::lock_guard lock(self.mutex_);
    const auto found = self.buffers_.find(memory);
    if (found == self.buffers_.end()) {
      give_up("memory was freed that is not an open message buffer");
    }
    check_canary(memory, found->second);
    self.buffers_.erase(found);
    std::free(memory);
  }
};

namespace {

using Operations = Fake_server::Operations;

Dovrin_registry registry{Operations::acquire, Operations::acquire_related,
                         Operations::release_handle};
Dovrin_udf_registration udf_registration{Operations::register_function,
                                         Operations::withdraw_function};
Dovrin_sys_variable_register variable_register{Operations::register_variable};
Dovrin_sys_variable_unregister variable_unregister{Operations::withdraw_variable};

// The reserved positions stay null: a component that reads one crashes its test.
Dovrin_log_builtins make_log_builtins() noexcept {
  Dovrin_log_builtins table{};
  table.item_set_int = Operations::item_set_int;
  table.item_set_lexstring = Operations::item_set_lexstring;
  table.item_set_cstring = Operations::item_set_cstring;
  table.add_item_with_key = Operations::add_item_with_key;
  table.add_item = Operations::add_item;
  table.create_line = Operations::create_line;
  table.release_line = Operations::release_line;
  table.has_item = Operations::has_item;
  table.submit = Operations::submit;
  table.message_template = Operations::message_template;
  return table;
}

Dovrin_log_builtins_string make_log_builtins_string() noexcept {
  Dovrin_log_builtins_string table{};
  table.allocate = Operations::allocate;
  table.release = Operations::release_buffer;
  table.format = Operations::format;
  return table;
}

Dovrin_log_builtins log_builtins = make_log_builtins();
Dovrin_log_builtins_string log_builtins_string = make_log_builtins_string();

}  // namespace

Fake_server::Fake_server() : templates_(test_catalogue()) {
  if (the_server != nullptr) {
    give_up("there is one already");
  }
  the_server = this;
}

Fake_server::~Fake_server() {
  the_server = nullptr;
  if (!lines_.empty() || !buffers_.empty()) {
    give_up(std::to_string(lines_.size()) + " log lines and " + std::to_string(buffers_.size()) +
            " message buffers were never given back");
  }
}

void *Fake_server::service(const std::string &name) {
  const std::map<std::string, void *> tables{
      {"registry", &registry},
      {"component_sys_variable_register", &variable_register},
      {"component_sys_variable_unregister", &variable_unregister},
      {"log_builtins", &log_builtins},
      {"log_builtins_string", &log_builtins_string},
      {"udf_registration", &udf_registration}};
  const auto found = tables.find(name);
  return found == tables.end() ? nullptr : found->second;
}

void Fake_server::fill_slots(const Dovrin_component &component) {
  for (const auto *required = component.required_services; required->name != nullptr; ++required) {
    *required->slot = service(required->name);
    if (*required->slot == nullptr) {
      give_up("the component requires an unknown service: " + std::string(required->name));
    }
  }
}

void Fake_server::refuse_function(const std::string &name) {
  const std::lock_guard lock(mutex_);
  refused_functions_.insert(name);
}

void Fake_server::refuse_variable(const std::string &name) {
  const std::lock_guard lock(mutex_);
  refused_variables_.insert(name);
}

void Fake_server::refuse_function_withdrawal(const std::string &name, int was_registered) {
  const std::lock_guard lock(mutex_);
  refused_function_withdrawals_[name] = was_registered;
}

void Fake_server::refuse_variable_withdrawal(const std::string &name) {
  const std::lock_guard lock(mutex_);
  refused_variable_withdrawals_.insert(name);
}

void Fake_server::refuse_lines() {
  const std::lock_guard lock(mutex_);
  refuse_lines_ = true;
}

void Fake_server::refuse_buffers() {
  const std::lock_guard lock(mutex_);
  refuse_buffers_ = true;
}

void Fake_server::set_template(int code, const std::optional<std::string> &text) {
  const std::lock_guard lock(mutex_);
  templates_[code] = text;
}

void Fake_server::accept_everything() {
  const std::lock_guard lock(mutex_);
  refused_functions_.clear();
  refused_variables_.clear();
  refused_function_withdrawals_.clear();
  refused_variable_withdrawals_.clear();
  refuse_lines_ = false;
  refuse_buffers_ = false;
}

std::vector<Registered_function> Fake_server::functions() const {
  const std::lock_guard lock(mutex_);
  return functions_;
}

std::vector<Registered_variable> Fake_server::variables() const {
  const std::lock_guard lock(mutex_);
  return variables_;
}

Registered_function Fake_server::function(const std::string &name) const {
  const std::lock_guard lock(mutex_);
  return find_named(functions_, name);
}

Registered_variable Fake_server::variable(const std::string &name) const {
  const std::lock_guard lock(mutex_);
  return find_named(variables_, name);
}

std::vector<std::string> Fake_server::registration_calls() const {
  const std::lock_guard lock(mutex_);
  return registration_calls_;
}

std::vector<std::string> Fake_server::log_calls() const {
  const std::lock_guard lock(mutex_);
  return log_calls_;
}

void Fake_server::forget_calls() {
  const std::lock_guard lock(mutex_);
  registration_calls_.clear();
  log_calls_.clear();
}

std::vector<Record> Fake_server::records() const {
  const std::lock_guard lock(mutex_);
  return records_;
}

std::vector<std::vector<Raw_item>> Fake_server::raw_records() const {
  const std::lock_guard lock(mutex_);
  return raw_records_;
}

void Fake_server::forget_records() {
  const std::lock_guard lock(mutex_);
  records_.clear();
  raw_records_.clear();
}

size_t Fake_server::open_lines() const {
  const std::lock_guard lock(mutex_);
  return lines_.size();
}

size_t Fake_server::open_buffers() const {
  const std::lock_guard lock(mutex_);
  return buffers_.size();
}

namespace {

// The value record of a SET statement; the record must come first.
struct Set_value {
  st_dovrin_value record{};
  std::optional<long long> integer;
};

int read_integer(st_dovrin_value *value, long long *out) {
  const auto *self = reinterpret_cast<const Set_value *>(value);
  if (!self->integer) {
    return 1;
  }
  *out = *self->integer;
  return 0;
}

Set_result set_variable(const Registered_variable &variable, std::optional<long long> integer) {
  // Only the integer operation is filled: a callback that uses another one crashes its test.
  Set_value value;
  value.record.val_int = read_integer;
  value.integer = integer;
  void *save = &value;  // not null, so that a check that leaves it alone is noticed
  if (variable.check(nullptr, nullptr, &save, &value.record) != 0) {
    if (save != nullptr) {
      give_up("a rejecting check left an address in the save area");
    }
    return Set_result::rejected;
  }
  int untouched = -7;
  variable.update(nullptr, nullptr, &untouched, &save);
  if (untouched != -7) {
    give_up("the update wrote through the storage address");
  }
  return Set_result::accepted;
}

}  // namespace

Set_result set_integer_variable(const Registered_variable &variable, long long value) {
  return set_variable(variable, value);
}

Set_result set_unreadable_variable(const Registered_variable &variable) {
  return set_variable(variable, std::nullopt);
}

void set_boolean_variable(const Registered_variable &variable, bool value) {
  *static_cast<bool *>(variable.storage) = value;
}

int integer_value(const Registered_variable &variable) {
  return *static_cast<const int *>(variable.storage);
}

}  // namespace halvex_test
