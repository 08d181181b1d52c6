#include "bare_server.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dovrin/services.h"
#include "fault_plan.h"

// A value is a number, a short text copied, or a long one that came from `allocate` and is owned.
struct Dovrin_log_item {
  int type;
  bool refused;
  long long number;
  char text[128];
  char *owned_text;
  std::size_t owned_length;
};

struct Dovrin_log_line {
  std::array<Dovrin_log_item, 8> items;
  std::size_t item_count;
  bool refused_an_item;
};

namespace reliability {
namespace {

constexpr long long first_code = 13915;
constexpr long long last_code = 13929;

bool refused_functions_are_known = true;

std::atomic<std::size_t> submitted{0};
std::atomic<std::size_t> malformed{0};
std::array<std::atomic<std::size_t>, last_code - first_code + 1> submitted_by_code{};
std::atomic<long> server_blocks{0};
thread_local Last_record last{};

bool refuses() { return fault_strikes(Fault_source::server); }

// Copies a name into a fixed field, cut if it is too long.
template <std::size_t capacity>
void copy_text(char (&out)[capacity], const char *text) {
  static_cast<void>(std::snprintf(out, capacity, "%s", text));
}

// Entries by name, in no order.
template <typename Entry, std::size_t capacity>
class Table {
 public:
  [[nodiscard]] Entry *find(const char *name) {
    for (std::size_t i = 0; i < count_; ++i) {
      if (std::strcmp(entries_[i].name, name) == 0) {
        return &entries_[i];
      }
    }
    return nullptr;
  }

  // A new entry of that name, or null if there is one or no room.
  [[nodiscard]] Entry *add(const char *name) {
    if (count_ == capacity || find(name) != nullptr) {
      return nullptr;
    }
    Entry &entry = entries_[count_];
    ++count_;
    copy_text(entry.name, name);
    return &entry;
  }

  void remove(Entry *entry) {
    --count_;
    *entry = entries_[count_];
  }

  [[nodiscard]] std::size_t size() const { return count_; }
  void clear() { count_ = 0; }

 private:
  std::array<Entry, capacity> entries_{};
  std::size_t count_ = 0;
};

constinit Table<Registered_function, 16> functions;
constinit Table<Registered_variable, 4> variables;

int register_function(const char *name, Item_result result_type, Udf_func_any row,
                      Udf_func_init init, Udf_func_deinit deinit) {
  Registered_function *entry = refuses() ? nullptr : functions.add(name);
  if (entry == nullptr) {
    return 1;
  }
  entry->result_type = result_type;
  entry->row = row;
  entry->init = init;
  entry->deinit = deinit;
  return 0;
}

int unregister_function(const char *name, int *was_registered) {
  Registered_function *entry = functions.find(name);
  const bool refused = refuses();
  const bool stays = refused && refused_functions_are_known;
  *was_registered = (refused ? stays : entry != nullptr) ? 1 : 0;
  if (entry == nullptr) {
    return 1;
  }
  if (!stays) {
    functions.remove(entry);
  }
  return refused ? 1 : 0;
}

int register_variable(const char * /*component*/, const char *name, int type_flag,
                      const char * /*comment*/, Sys_var_check check, Sys_var_update update,
                      void * /*limits*/, void *storage) {
  Registered_variable *entry = refuses() ? nullptr : variables.add(name);
  if (entry == nullptr) {
    return 1;
  }
  entry->type_flag = type_flag;
  entry->check = check;
  entry->update = update;
  entry->storage = storage;
  return 0;
}

int unregister_variable(const char * /*component*/, const char *name) {
  Registered_variable *entry = variables.find(name);
  if (refuses() || entry == nullptr) {
    return 1;
  }
  variables.remove(entry);
  return 0;
}

void *allocate_block(std::size_t size) {
  void *block = refuses() ? nullptr : std::calloc(1, size);
  if (block != nullptr) {
    server_blocks.fetch_add(1, std::memory_order_relaxed);
  }
  return block;
}

void release_block(void *block) {
  if (block != nullptr) {
    server_blocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
  }
}

Dovrin_log_line *create_line() {
  return static_cast<Dovrin_log_line *>(allocate_block(sizeof(Dovrin_log_line)));
}

void release_line(Dovrin_log_line *line) {
  if (line == nullptr) {
    return;
  }
  for (const Dovrin_log_item &item : line->items) {
    release_block(item.owned_text);
  }
  release_block(line);
}

Dovrin_log_item *add_item(Dovrin_log_line *line, int type) {
  if (line == nullptr || line->item_count == line->items.size()) {
    return nullptr;
  }
  if (refuses()) {
    line->refused_an_item = true;
    return nullptr;
  }
  Dovrin_log_item &item = line->items[line->item_count];
  ++line->item_count;
  item.type = type;
  return &item;
}

Dovrin_log_item *add_item_with_key(Dovrin_log_line *line, int type, const char * /*key*/,
                                   unsigned int /*flags*/) {
  return add_item(line, type);
}

// Notes whether the item may take a value now.
bool accepts_value(Dovrin_log_item *item) {
  if (item == nullptr) {
    return false;
  }
  item->refused = refuses();
  return !item->refused;
}

int set_integer(Dovrin_log_item *item, long long value) {
  if (!accepts_value(item)) {
    return 1;
  }
  item->number = value;
  return 0;
}

int set_string(Dovrin_log_item *item, const char *text) {
  if (!accepts_value(item)) {
    return 1;
  }
  copy_text(item->text, text);
  return 0;
}

// The line owns the text from here on, also when it cannot use it.
int set_owned_string(Dovrin_log_item *item, const char *text, std::size_t length) {
  const bool accepted = accepts_value(item);
  if (item != nullptr) {
    item->owned_text = const_cast<char *>(text);
    item->owned_length = length;
  }
  return accepted ? 0 : 1;
}

int has_item(Dovrin_log_line *line, int type) {
  for (std::size_t position = 0; line != nullptr && position < line->item_count; ++position) {
    if (line->items[position].type == type) {
      return 1;
    }
  }
  return 0;
}

// Whether a value of the item's kind is there: a message of the length announced, a number above 0,
// or a text.
bool has_value(const Dovrin_log_item &item) {
  switch (item.type) {
    case DOVRIN_LOG_MESSAGE:
      return item.owned_text != nullptr && item.owned_length < sizeof(Last_record::message) &&
             std::strlen(item.owned_text) == item.owned_length;
    case DOVRIN_LOG_PRIORITY:
    case DOVRIN_LOG_ERROR_CODE:
    case DOVRIN_LOG_SOURCE_LINE:
      return item.number > 0;
    default:
      return item.text[0] != '\0';
  }
}

bool is_complete(const Dovrin_log_line &line) {
  static constexpr std::array<int, 7> order{
      DOVRIN_LOG_PRIORITY,    DOVRIN_LOG_ERROR_CODE, DOVRIN_LOG_COMPONENT, DOVRIN_LOG_SOURCE_LINE,
      DOVRIN_LOG_SOURCE_FILE, DOVRIN_LOG_FUNCTION,   DOVRIN_LOG_MESSAGE};
  if (line.item_count != order.size()) {
    return false;
  }
  for (std::size_t position = 0; position < order.size(); ++position) {
    const Dovrin_log_item &item = line.items[position];
    if (item.type != order[position] || !has_value(item)) {
      return false;
    }
  }
  return true;
}

bool was_refused(const Dovrin_log_line &line) {
  bool refused = line.refused_an_item;
  for (const Dovrin_log_item &item : line.items) {
    refused = refused || item.refused;
  }
  return refused;
}

void remember(const Dovrin_log_line &line) {
  last.priority = line.items[0].number;
  last.code = line.items[1].number;
  copy_text(last.message, line.items[6].owned_text);
  if (last.code >= first_code && last.code <= last_code) {
    submitted_by_code[static_cast<std::size_t>(last.code - first_code)].fetch_add(
        1, std::memory_order_relaxed);
  }
}

int submit(Dovrin_log_line *line) {
  if (line == nullptr || refuses()) {
    return 1;
  }
  submitted.fetch_add(1, std::memory_order_relaxed);
  if (is_complete(*line)) {
    remember(*line);
  } else if (!was_refused(*line)) {
    malformed.fetch_add(1, std::memory_order_relaxed);
  }
  return 0;
}

// The conversions of each code, in the order of the arguments.
constexpr std::array<const char *, last_code - first_code + 1> templates{
    "%s",                    // 13915
    "%s",                    // 13916
    "%s",                    // 13917
    "%s",                    // 13918
    "%s %s",                 // 13919
    "%s %s",                 // 13920
    "%llu %s %s %lld %lld",  // 13921
    "%lld %s %s",            // 13922
    "%s %s",                 // 13923
    "%llu %s %s %lld",       // 13924
    "%s %s %llu",            // 13925
    "%s %s %llu",            // 13926
    "%s %s %s",              // 13927
    "%s %s %s",              // 13928
    "%s %s %llu %llu",       // 13929
};

const char *message_template(int code) {
  if (refuses() || code < first_code || code > last_code) {
    return nullptr;
  }
  return templates[static_cast<std::size_t>(code - first_code)];
}

// A refusal is vsnprintf's own failure, (size_t)-1, with nothing written.
std::size_t format(char *buffer, std::size_t size, const char *format, va_list arguments) {
  if (refuses()) {
    return static_cast<std::size_t>(-1);
  }
  return static_cast<std::size_t>(std::vsnprintf(buffer, size, format, arguments));
}

Dovrin_udf_registration udf_service{register_function, unregister_function};
Dovrin_sys_variable_register register_service{register_variable};
Dovrin_sys_variable_unregister unregister_service{unregister_variable};
Dovrin_registry registry_service{};

// The reserved positions stay null: a component that called one would crash here.
Dovrin_log_builtins log_service{.reserved_1_to_8 = {},
                                .item_set_int = set_integer,
                                .reserved_10 = nullptr,
                                .item_set_lexstring = set_owned_string,
                                .item_set_cstring = set_string,
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
Dovrin_log_builtins_string string_service{.allocate = allocate_block,
                                          .reserved_2 = nullptr,
                                          .release = release_block,
                                          .reserved_4_to_7 = {},
                                          .format = format};

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

// The value record that check reads; the record itself comes first, as the server's do.
struct Integer_value {
  st_dovrin_value record;
  long long value;
};

int read_integer(st_dovrin_value *record, long long *out) {
  *out = reinterpret_cast<Integer_value *>(record)->value;
  return 0;
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

bool connect_services(const Dovrin_component &component) {
  for (const Dovrin_required_service *service = component.required_services;
       service->name != nullptr; ++service) {
    *service->slot = service_table(service->name);
    if (*service->slot == nullptr) {
      return false;
    }
  }
  return true;
}

const Registered_function *find_function(const char *name) { return functions.find(name); }
const Registered_variable *find_variable(const char *name) { return variables.find(name); }

std::size_t registered_functions() { return functions.size(); }
std::size_t registered_variables() { return variables.size(); }

void forget_registrations() {
  functions.clear();
  variables.clear();
}

void know_functions_when_refusing(bool known) { refused_functions_are_known = known; }

std::size_t submitted_records() { return submitted.load(std::memory_order_relaxed); }
std::size_t malformed_records() { return malformed.load(std::memory_order_relaxed); }
long live_server_blocks() { return server_blocks.load(std::memory_order_relaxed); }

std::size_t submitted_records_of(long long code) {
  return code < first_code || code > last_code
             ? 0
             : submitted_by_code[static_cast<std::size_t>(code - first_code)].load(
                   std::memory_order_relaxed);
}

const Last_record &last_record() { return last; }

bool set_variable(const char *name, long long value) {
  const Registered_variable *variable = find_variable(name);
  if (variable == nullptr) {
    return false;
  }
  if (variable->check == nullptr) {
    __atomic_store_n(static_cast<bool *>(variable->storage), value != 0, __ATOMIC_RELAXED);
    return true;
  }
  Integer_value wanted{{nullptr, nullptr, nullptr, read_integer, nullptr}, value};
  void *save = nullptr;
  if (variable->check(nullptr, nullptr, &save, &wanted.record) != 0) {
    return false;
  }
  variable->update(nullptr, nullptr, variable->storage, &save);
  return true;
}

}  // namespace reliability
