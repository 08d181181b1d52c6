#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "dovrin_host/services.h"

using dovrin_host::log_line_capacity;

// Texts are copied, except one that the line owns: that one is kept as it is and freed with the
// line.
struct Dovrin_log_item {
  int type = 0;
  bool owns_text = false;
  long long integer = 0;
  std::string copied_text;
  void *owned_text = nullptr;
  std::string_view text;
};

struct Dovrin_log_line {
  Dovrin_log_line() = default;
  Dovrin_log_line(const Dovrin_log_line &) = delete;
  Dovrin_log_line &operator=(const Dovrin_log_line &) = delete;
  ~Dovrin_log_line() {
    for (const Dovrin_log_item &item : items) {
      std::free(item.owned_text);
    }
  }

  std::array<Dovrin_log_item, log_line_capacity> items;
  int count = 0;
};

namespace dovrin_host {
namespace {

constexpr int done = 0;
constexpr int refused = 1;

Dovrin_log_item *add(Dovrin_log_line *line, int type, bool owns_text) noexcept {
  if (line == nullptr || line->count == log_line_capacity) {
    return nullptr;
  }
  Dovrin_log_item &item = line->items[static_cast<std::size_t>(line->count++)];
  item.type = type;
  item.owns_text = owns_text;
  return &item;
}

// The newest item of a type, or null.
const Dovrin_log_item *find(const Dovrin_log_line &line, int type) noexcept {
  for (int i = line.count; i > 0; --i) {
    const Dovrin_log_item &item = line.items[static_cast<std::size_t>(i - 1)];
    if (item.type == type) {
      return &item;
    }
  }
  return nullptr;
}

std::string text_of(const Dovrin_log_line &line, int type) {
  const Dovrin_log_item *const item = find(line, type);
  return item != nullptr ? std::string{item->text} : std::string{};
}

long long integer_of(const Dovrin_log_line &line, int type) noexcept {
  const Dovrin_log_item *const item = find(line, type);
  return item != nullptr ? item->integer : 0;
}

Log_record record_of(const Dovrin_log_line &line) {
  Log_record record;
  record.time = std::chrono::system_clock::now();
  record.priority = static_cast<int>(integer_of(line, DOVRIN_LOG_PRIORITY));
  record.code = static_cast<int>(integer_of(line, DOVRIN_LOG_ERROR_CODE));
  record.symbol = text_of(line, DOVRIN_LOG_ERROR_SYMBOL);
  record.component = text_of(line, DOVRIN_LOG_COMPONENT);
  record.function = text_of(line, DOVRIN_LOG_FUNCTION);
  record.source_file = text_of(line, DOVRIN_LOG_SOURCE_FILE);
  record.source_line = integer_of(line, DOVRIN_LOG_SOURCE_LINE);
  record.message = text_of(line, DOVRIN_LOG_MESSAGE);
  if (const Catalogue_entry *const entry = find_catalogue_entry(record.code)) {
    record.hint = find_hint(record.code, running_function());
    if (record.symbol.empty()) {
      record.symbol = entry->symbol;
    }
  }
  return record;
}

void take_owned_text(Dovrin_log_item &item, const char *text, std::size_t length) noexcept {
  if (item.owned_text != text) {
    std::free(item.owned_text);
  }
  // The text came from this library's allocate, which the interface returns as a plain pointer.
  item.owned_text = const_cast<char *>(text);
  item.text = {text, length};
}

}  // namespace

extern "C" {

static int item_set_int(Dovrin_log_item *item, long long value) noexcept {
  if (item == nullptr) {
    return refused;
  }
  item->integer = value;
  return done;
}

static int item_set_lexstring(Dovrin_log_item *item, const char *text, size_t length) noexcept {
  if (item == nullptr || text == nullptr) {
    return refused;
  }
  if (item->owns_text) {
    take_owned_text(*item, text, length);
    return done;
  }
  try {
    item->copied_text.assign(text, length);
    item->text = item->copied_text;
    return done;
  } catch (const std::exception &) {
    return refused;
  }
}

static int item_set_cstring(Dovrin_log_item *item, const char *text) noexcept {
  return item_set_lexstring(item, text, text != nullptr ? std::string_view{text}.size() : 0);
}

static Dovrin_log_item *add_item_with_key(Dovrin_log_line *line, int type, const char * /*key*/,
                                          unsigned int flags) noexcept {
  return add(line, type, (flags & DOVRIN_LOG_FREE_VALUE) != 0);
}

static Dovrin_log_item *add_item(Dovrin_log_line *line, int type) noexcept {
  return add(line, type, false);
}

static Dovrin_log_line *create_line() noexcept { return new (std::nothrow) Dovrin_log_line; }

static void release_line(Dovrin_log_line *line) noexcept { delete line; }

static int has_item(Dovrin_log_line *line, int type) noexcept {
  return line != nullptr && find(*line, type) != nullptr ? 1 : 0;
}

static int submit(Dovrin_log_line *line) noexcept {
  if (line == nullptr) {
    return refused;
  }
  try {
    service_state().error_log.submit(record_of(*line));
    return done;
  } catch (const std::exception &) {
    return refused;
  }
}

static const char *message_template(int code) noexcept {
  const Catalogue_entry *const entry = find_catalogue_entry(code);
  return entry != nullptr ? entry->template_text : nullptr;
}

static void *allocate(size_t size) noexcept { return std::malloc(size); }

static void release(void *memory) noexcept { std::free(memory); }

// Out of memory gives an empty text, never one with a text that a user chose in full.
static size_t format(char *buffer, size_t size, const char *format_text,
                     va_list arguments) noexcept {
  if (!has_user_text(format_text)) {
    const int length = std::vsnprintf(buffer, size, format_text, arguments);
    return length < 0 ? 0 : static_cast<size_t>(length);
  }
  std::string text;
  try {
    text = format_message(format_text, arguments);
  } catch (const std::exception &) {
    text.clear();
  }
  if (size > 0) {
    const std::size_t kept = text.copy(buffer, size - 1);
    buffer[kept] = '\0';
  }
  return text.size();
}

}  // extern "C"

const Dovrin_log_builtins log_builtins_table{
    .reserved_1_to_8 = {},
    .item_set_int = item_set_int,
    .reserved_10 = nullptr,
    .item_set_lexstring = item_set_lexstring,
    .item_set_cstring = item_set_cstring,
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
    .message_template = message_template,
};

const Dovrin_log_builtins_string log_builtins_string_table{
    .allocate = allocate,
    .reserved_2 = nullptr,
    .release = release,
    .reserved_4_to_7 = {},
    .format = format,
};

}  // namespace dovrin_host
