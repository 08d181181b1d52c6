#include "support/fake_server.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "dovrin/services.h"
#include "support/fault_plan.h"

namespace halvex_test {
namespace {

constexpr long long first_code = 13915;
constexpr long long last_code = 13929;
constexpr std::size_t codes = last_code - first_code + 1;

// The conversions of each code, in the order of the arguments.
using Templates = std::array<const char *, codes>;
constexpr Templates default_templates{
    "%s",                            // 13915
    "%s",                            // 13916
    "%s",                            // 13917
    "%s",                            // 13918
    "%s | %s",                       // 13919
    "%s | %s",                       // 13920
    "%llu | %s | %s | %lld | %lld",  // 13921
    "%lld | %s | %s",                // 13922
    "%s | %s",                       // 13923
    "%llu | %s | %s | %lld",         // 13924
    "%s | %s | %llu",                // 13925
    "%s | %s | %llu",                // 13926
    "%s | %s | %s",                  // 13927
    "%s | %s | %s",                  // 13928
    "%s | %s | %llu | %llu",         // 13929
};

struct Log_line {
  std::array<Log_item, 16> items;
  std::size_t item_count;
  bool refused_an_item;
};

// Entries in the order of registration.
template <typename Entry, std::size_t capacity>
class Table {
 public:
  [[nodiscard]] Entry *find(const char *name) {
    const auto found = std::find_if(entries_.begin(), end(),
                                    [name](const Entry &entry) { return entry.name == name; });
    return found == end() ? nullptr : &*found;
  }
  [[nodiscard]] bool add(const Entry &entry, bool duplicates_accepted) {
    if (count_ == capacity || (!duplicates_accepted && find(entry.name.c_str()) != nullptr)) {
      return false;
    }
    entries_[count_] = entry;
    ++count_;
    return true;
  }
  // Every entry of that name.
  void remove(const char *name) {
    const auto rest = std::remove_if(entries_.begin(), end(),
                                     [name](const Entry &entry) { return entry.name == name; });
    count_ = static_cast<std::size_t>(rest - entries_.begin());
  }
  [[nodiscard]] std::span<const Entry> entries() const { return {entries_.data(), count_}; }
  void clear() { count_ = 0; }

 private:
  [[nodiscard]] auto end() { return entries_.begin() + static_cast<std::ptrdiff_t>(count_); }

  std::array<Entry, capacity> entries_{};
  std::size_t count_ = 0;
};

constinit Table<Registered_function, 16> functions;
constinit Table<Registered_variable, 4> variables;
constinit Templates templates = default_templates;
Call_observer *observer = nullptr;
int answer_of_refused_unregistration = 1;
bool duplicates_are_accepted = false;

std::atomic<std::size_t> submitted{0};
std::atomic<std::size_t> malformed{0};
std::array<std::atomic<std::size_t>, codes> submitted_by_code{};
std::atomic<long> lines{0};
std::atomic<long> buffers{0};
thread_local Last_record last{};

[[noreturn]] void abort_with(const char *why, const char *what = "") {
  static_cast<void>(std::fprintf(stderr, "The fake server: %s%s\n", why, what));
  std::abort();
}

const char *mark_of_null(const void *pointer) { return pointer == nullptr ? " (null)" : ""; }

// Shows a call to the observer; whether that one refuses it.
__attribute__((format(printf, 1, 2))) bool observe(const char *format, ...) {
  if (observer == nullptr) {
    return false;
  }
  std::array<char, 1024> call{};
  va_list arguments;
  va_start(arguments, format);
  static_cast<void>(std::vsnprintf(call.data(), call.size(), format, arguments));
  va_end(arguments);
  return observer->refuses(call.data());
}

bool inject_server_fault() { return inject_fault(Fault_source::server); }

int register_function(const char *name, Item_result result_type, Udf_func_any row,
                      Udf_func_init init, Udf_func_deinit deinit) {
  const bool refused = observe("register_function %s", name) || inject_server_fault();
  return !refused && functions.add({Short_text(name), result_type, row, init, deinit},
                                   duplicates_are_accepted)
             ? 0
             : 1;
}

int unregister_function(const char *name, int *was_registered) {
  const bool refused = observe("unregister_function %s", name) || inject_server_fault();
  const bool is_registered = functions.find(name) != nullptr;
  *was_registered = refused ? answer_of_refused_unregistration : (is_registered ? 1 : 0);
  if (!refused || answer_of_refused_unregistration == 0) {
    functions.remove(name);
  }
  return refused || !is_registered ? 1 : 0;
}

std::array<int, 4> copy_limits(int type_flag, const void *limits) {
  if (type_flag == DOVRIN_VARIABLE_INT) {
    const auto *integers = static_cast<const Dovrin_int_limits *>(limits);
    return {integers->default_value, integers->minimum, integers->maximum, integers->block_size};
  }
  return {*static_cast<const unsigned char *>(limits)};
}

int register_variable(const char *component, const char *name, int type_flag, const char *comment,
                      Sys_var_check check, Sys_var_update update, void *limits, void *storage) {
  const bool refused = observe("register_variable %s.%s", component, name) || inject_server_fault();
  return !refused && variables.add(
                         {Short_text(name), Short_text(component), type_flag, Short_text(comment),
                          check, update, copy_limits(type_flag, limits), storage},
                         duplicates_are_accepted)
             ? 0
             : 1;
}

int unregister_variable(const char *component, const char *name) {
  const bool refused =
      observe("unregister_variable %s.%s", component, name) || inject_server_fault();
  if (refused || variables.find(name) == nullptr) {
    return 1;
  }
  variables.remove(name);
  return 0;
}

// Before each block lies its size and a mark, behind it a canary.
struct Block_header {
  std::size_t size;
  std::size_t mark;
};

constexpr std::size_t mark_of_block = 0x5EB10C;
constexpr std::size_t canary_length = 16;
constexpr unsigned char canary = 0xC3;

// Filled with something else than zeros, which nobody may count on; null if out of memory.
void *allocate_block(std::size_t size, std::atomic<long> &count) {
  auto *header =
      static_cast<Block_header *>(std::malloc(sizeof(Block_header) + size + canary_length));
  if (header == nullptr) {
    return nullptr;
  }
  *header = {size, mark_of_block};
  constexpr unsigned char fresh = 0xA5;
  std::memset(header + 1, fresh, size);
  std::memset(reinterpret_cast<unsigned char *>(header + 1) + size, canary, canary_length);
  count.fetch_add(1, std::memory_order_relaxed);
  return header + 1;
}

void release_block(void *block, std::atomic<long> &count) {
  if (block == nullptr) {
    return;
  }
  Block_header *header = static_cast<Block_header *>(block) - 1;
  if (header->mark != mark_of_block) {
    abort_with("memory was released that is not allocated");
  }
  const auto *end = static_cast<const unsigned char *>(block) + header->size;
  if (!std::all_of(end, end + canary_length, [](unsigned char byte) { return byte == canary; })) {
    abort_with("a block was written past its end");
  }
  header->mark = 0;
  count.fetch_sub(1, std::memory_order_relaxed);
  std::free(header);
}

void *allocate(std::size_t size) {
  const bool refused = observe("allocate %zu", size) || inject_server_fault();
  return refused ? nullptr : allocate_block(size, buffers);
}

void release_buffer(void *buffer) {
  observe("free%s", mark_of_null(buffer));
  release_block(buffer, buffers);
}

// The handles of the interface are lines and items of this server.
Log_line *line_of(Dovrin_log_line *handle) { return reinterpret_cast<Log_line *>(handle); }
Log_item *item_of(Dovrin_log_item *handle) { return reinterpret_cast<Log_item *>(handle); }

Dovrin_log_line *create_line() {
  const bool refused = observe("create_line") || inject_server_fault();
  void *line = refused ? nullptr : allocate_block(sizeof(Log_line), lines);
  if (line != nullptr) {
    std::memset(line, 0, sizeof(Log_line));
  }
  return static_cast<Dovrin_log_line *>(line);
}

void release_line(Dovrin_log_line *handle) {
  observe("release_line%s", mark_of_null(handle));
  if (handle == nullptr) {
    return;
  }
  const Log_line &line = *line_of(handle);
  for (std::size_t i = 0; i < line.item_count; ++i) {
    if (line.items[i].flags == DOVRIN_LOG_FREE_VALUE) {
      release_block(const_cast<char *>(line.items[i].text), buffers);
    }
  }
  release_block(handle, lines);
}

Dovrin_log_item *add_to(Log_line *line, int type, unsigned int flags) {
  if (line == nullptr) {
    return nullptr;
  }
  if (inject_server_fault()) {
    line->refused_an_item = true;
    return nullptr;
  }
  if (line->item_count == line->items.size()) {
    abort_with("too many items in a line");
  }
  Log_item &item = line->items[line->item_count];
  ++line->item_count;
  item.type = type;
  item.flags = flags;
  item.setter = "";
  return reinterpret_cast<Dovrin_log_item *>(&item);
}

Dovrin_log_item *add_item(Dovrin_log_line *line, int type) {
  observe("add_item %d%s", type, mark_of_null(line));
  return add_to(line_of(line), type, 0);
}

Dovrin_log_item *add_item_with_key(Dovrin_log_line *line, int type, const char *key,
                                   unsigned int flags) {
  observe("add_item_with_key %d%s flags %u%s", type, key == nullptr ? "" : " keyed", flags,
          mark_of_null(line));
  return add_to(line_of(line), type, flags);
}

// Whether the item takes a value from this operation.
bool accepts_value(Log_item *item, const char *setter) {
  if (item == nullptr) {
    return false;
  }
  item->setter = setter;
  item->was_refused = inject_server_fault();
  return !item->was_refused;
}

int set_integer(Dovrin_log_item *handle, long long value) {
  observe("item_set_int %lld%s", value, mark_of_null(handle));
  if (!accepts_value(item_of(handle), "item_set_int")) {
    return 1;
  }
  item_of(handle)->number = value;
  return 0;
}

int set_text(Dovrin_log_item *handle, const char *text) {
  observe("item_set_cstring %s%s", text, mark_of_null(handle));
  if (!accepts_value(item_of(handle), "item_set_cstring")) {
    return 1;
  }
  item_of(handle)->text = text;
  item_of(handle)->length = std::strlen(text);
  return 0;
}

// An item that frees its value owns the text from here on, also if it refuses it.
int set_owned_text(Dovrin_log_item *handle, const char *text, std::size_t length) {
  observe("item_set_lexstring%s", mark_of_null(handle));
  Log_item *item = item_of(handle);
  const bool accepted = accepts_value(item, "item_set_lexstring");
  if (item != nullptr) {
    item->text = text;
    item->length = length;
  }
  return accepted ? 0 : 1;
}

int has_item(Dovrin_log_line *line, int type) {
  observe("has_item %d%s", type, mark_of_null(line));
  for (std::size_t i = 0; line != nullptr && i < line_of(line)->item_count; ++i) {
    if (line_of(line)->items[i].type == type) {
      return 1;
    }
  }
  return 0;
}

// Whether the item has a value of its kind: a message of the announced length, a number above 0,
// or a text.
bool has_value(const Log_item &item) {
  switch (item.type) {
    case DOVRIN_LOG_MESSAGE:
      return item.text != nullptr && item.length < sizeof(Last_record::message) &&
             std::strlen(item.text) == item.length;
    case DOVRIN_LOG_PRIORITY:
    case DOVRIN_LOG_ERROR_CODE:
    case DOVRIN_LOG_SOURCE_LINE:
      return item.number > 0;
    default:
      return item.length > 0;
  }
}

bool is_complete(const Log_line &line) {
  static constexpr std::array<int, 7> order{
      DOVRIN_LOG_PRIORITY,    DOVRIN_LOG_ERROR_CODE, DOVRIN_LOG_COMPONENT, DOVRIN_LOG_SOURCE_LINE,
      DOVRIN_LOG_SOURCE_FILE, DOVRIN_LOG_FUNCTION,   DOVRIN_LOG_MESSAGE};
  bool complete = line.item_count == order.size();
  for (std::size_t i = 0; complete && i < order.size(); ++i) {
    complete = line.items[i].type == order[i] && has_value(line.items[i]);
  }
  return complete;
}

bool was_refused(const Log_line &line) {
  return line.refused_an_item || std::any_of(line.items.begin(), line.items.end(),
                                             [](const Log_item &item) { return item.was_refused; });
}

void remember(const Log_line &line) {
  last.priority = line.items[0].number;
  last.code = line.items[1].number;
  static_cast<void>(std::snprintf(last.message, sizeof last.message, "%s", line.items[6].text));
  if (last.code >= first_code && last.code <= last_code) {
    submitted_by_code[static_cast<std::size_t>(last.code - first_code)].fetch_add(
        1, std::memory_order_relaxed);
  }
}

int submit(Dovrin_log_line *handle) {
  observe("submit%s", mark_of_null(handle));
  if (handle == nullptr || inject_server_fault()) {
    return 1;
  }
  const Log_line &line = *line_of(handle);
  submitted.fetch_add(1, std::memory_order_relaxed);
  if (is_complete(line)) {
    remember(line);
  } else if (!was_refused(line)) {
    malformed.fetch_add(1, std::memory_order_relaxed);
  }
  if (observer != nullptr) {
    observer->receive_line({line.items.data(), line.item_count});
  }
  return 0;
}

const char *message_template(int code) {
  observe("message_template %d", code);
  if (inject_server_fault() || code < first_code || code > last_code) {
    return nullptr;
  }
  return templates[static_cast<std::size_t>(code - first_code)];
}

// A refusal is vsnprintf's own failure, (size_t)-1, with nothing written.
__attribute__((format(printf, 3, 0))) std::size_t format_message(char *buffer, std::size_t size,
                                                                 const char *format,
                                                                 va_list arguments) {
  observe("format %zu", size);
  if (inject_server_fault()) {
    return static_cast<std::size_t>(-1);
  }
  return static_cast<std::size_t>(std::vsnprintf(buffer, size, format, arguments));
}

int acquire(const char *name, void **handle) {
  *handle = service_table(name);
  return *handle == nullptr ? 1 : 0;
}

int acquire_related(const char *name, void * /*related*/, void **handle) {
  return acquire(name, handle);
}

int release_handle(void * /*handle*/) { return 0; }

Dovrin_registry registry_service{acquire, acquire_related, release_handle};
Dovrin_udf_registration udf_service{register_function, unregister_function};
Dovrin_sys_variable_register register_service{register_variable};
Dovrin_sys_variable_unregister unregister_service{unregister_variable};

// The reserved positions stay null: a component that calls one crashes its test.
Dovrin_log_builtins log_service{.reserved_1_to_8 = {},
                                .item_set_int = set_integer,
                                .reserved_10 = nullptr,
                                .item_set_lexstring = set_owned_text,
                                .item_set_cstring = set_text,
                                .reserved_13_to_14 = {},
                                .add_item_with_key = add_item_with_key,
                                .add_item = add_item,
                                .create_line = create_line,
                                .release_line = release_line,
                                .reserved_19 = nullptr,
                                .has_item = has_item,
                                .reserved_21_to_26 = {},
                                .submit = submit,
                                .reserved_28_to_29 = {},
                                .message_template = message_template};
Dovrin_log_builtins_string string_service{.allocate = allocate,
                                          .reserved_2 = nullptr,
                                          .release = release_buffer,
                                          .reserved_4_to_7 = {},
                                          .format = format_message};

struct Service {
  const char *name;
  void *table;
};

constexpr std::array<Service, 6> services{{
    {"registry", &registry_service},
    {"component_sys_variable_register", &register_service},
    {"component_sys_variable_unregister", &unregister_service},
    {"udf_registration", &udf_service},
    {"log_builtins", &log_service},
    {"log_builtins_string", &string_service},
}};

// The value record of a SET statement; the record must come first.
struct Set_value {
  st_dovrin_value record{};
  std::optional<long long> integer;
};

int read_integer(st_dovrin_value *record, long long *out) {
  const auto &value = *reinterpret_cast<const Set_value *>(record);
  *out = value.integer.value_or(*out);
  return value.integer ? 0 : 1;
}

const Registered_variable &existing_variable(const char *name) {
  const Registered_variable *variable = find_variable(name);
  if (variable == nullptr) {
    abort_with("no variable ", name);
  }
  return *variable;
}

}  // namespace

void *service_table(const char *name) {
  for (const Service &service : services) {
    if (std::strcmp(service.name, name) == 0) {
      return service.table;
    }
  }
  return nullptr;
}

void fill_slots(const Dovrin_component &component) {
  for (const auto *required = component.required_services; required->name != nullptr; ++required) {
    *required->slot = service_table(required->name);
    if (*required->slot == nullptr) {
      abort_with("the component requires an unknown service: ", required->name);
    }
  }
}

std::span<const Registered_function> registered_functions() { return functions.entries(); }
std::span<const Registered_variable> registered_variables() { return variables.entries(); }
const Registered_function *find_function(const char *name) { return functions.find(name); }
const Registered_variable *find_variable(const char *name) { return variables.find(name); }

void forget_registrations() {
  functions.clear();
  variables.clear();
}

void set_answer_of_refused_unregistration(int was_registered) {
  answer_of_refused_unregistration = was_registered;
}

void accept_duplicate_names(bool accepted) { duplicates_are_accepted = accepted; }

void set_message_template(int code, const char *text) {
  templates.at(static_cast<std::size_t>(code - first_code)) = text;
}

void set_call_observer(Call_observer *new_observer) { observer = new_observer; }

void reset_fake_server() {
  forget_registrations();
  observer = nullptr;
  answer_of_refused_unregistration = 1;
  duplicates_are_accepted = false;
  templates = default_templates;
  submitted = 0;
  malformed = 0;
  lines = 0;
  buffers = 0;
  for (auto &count : submitted_by_code) {
    count = 0;
  }
}

std::size_t submitted_records() { return submitted.load(std::memory_order_relaxed); }
std::size_t malformed_records() { return malformed.load(std::memory_order_relaxed); }
long open_lines() { return lines.load(std::memory_order_relaxed); }
long open_buffers() { return buffers.load(std::memory_order_relaxed); }

std::size_t submitted_records_of(long long code) {
  return submitted_by_code.at(static_cast<std::size_t>(code - first_code))
      .load(std::memory_order_relaxed);
}

const Last_record &last_record() { return last; }

Set_result set_variable(const char *name, std::optional<long long> value) {
  const Registered_variable &variable = existing_variable(name);
  if (variable.check == nullptr) {
    __atomic_store_n(static_cast<bool *>(variable.storage), value != 0, __ATOMIC_RELAXED);
    return Set_result::accepted;
  }
  // Only the integer operation is filled: a callback that uses another one crashes its test.
  Set_value wanted;
  wanted.record.val_int = read_integer;
  wanted.integer = value;
  void *save = &wanted;  // not null, so that a check that leaves it alone is noticed
  if (variable.check(nullptr, nullptr, &save, &wanted.record) != 0) {
    if (save != nullptr) {
      abort_with("a rejecting check left an address in the save area");
    }
    return Set_result::rejected;
  }
  int untouched = -7;
  variable.update(nullptr, nullptr, &untouched, &save);
  if (untouched != -7) {
    abort_with("the update wrote through the storage address");
  }
  return Set_result::accepted;
}

void switch_legacy_padding(bool on) { set_variable("rsa_support_legacy_padding", on ? 1 : 0); }

int integer_value(const char *name) {
  return *static_cast<const int *>(existing_variable(name).storage);
}

}  // namespace halvex_test
