#include "support/recording_server.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "dovrin/services.h"

namespace halvex_test {
namespace {

[[noreturn]] void abort_with(const std::string &why) {
  static_cast<void>(std::fprintf(stderr, "Recording_server: %s\n", why.c_str()));
  std::abort();
}

bool has_observer = false;

Raw_item raw_item(const Log_item &item) {
  Raw_item raw{item.type, {}, item.setter, item.flags};
  if (raw.setter == "item_set_int") {
    raw.value = item.number;
  } else if (!raw.setter.empty()) {
    raw.value = std::string(item.text, item.length);
  }
  return raw;
}

// Keeps the default if the item holds another kind of value.
template <typename Value>
void read_value(const Raw_item &item, Value &out) {
  if (const auto *value = std::get_if<Value>(&item.value)) {
    out = *value;
  }
}

Record record_from(const std::vector<Raw_item> &items) {
  Record record;
  for (const Raw_item &item : items) {
    switch (item.type) {
      case DOVRIN_LOG_PRIORITY:
        read_value(item, record.priority);
        break;
      case DOVRIN_LOG_ERROR_CODE:
        read_value(item, record.code);
        break;
      case DOVRIN_LOG_COMPONENT:
        read_value(item, record.component);
        break;
      case DOVRIN_LOG_SOURCE_LINE:
        read_value(item, record.line);
        break;
      case DOVRIN_LOG_SOURCE_FILE:
        read_value(item, record.file);
        break;
      case DOVRIN_LOG_FUNCTION:
        read_value(item, record.function);
        break;
      case DOVRIN_LOG_MESSAGE:
        read_value(item, record.message);
        break;
      default:
        abort_with("a record has an item of unknown type " + std::to_string(item.type));
    }
  }
  return record;
}

template <typename Entry>
const Entry &existing(const Entry *entry, const std::string &name) {
  if (entry == nullptr) {
    abort_with("nothing is registered under the name " + name);
  }
  return *entry;
}

}  // namespace

Recording_server::Recording_server() {
  if (has_observer) {
    abort_with("there is one already");
  }
  has_observer = true;
  reset_fake_server();
  set_call_observer(this);
}

Recording_server::~Recording_server() {
  has_observer = false;
  set_call_observer(nullptr);
  if (open_lines() != 0 || open_buffers() != 0) {
    abort_with(std::to_string(open_lines()) + " log lines and " + std::to_string(open_buffers()) +
               " message buffers were not released");
  }
}

bool Recording_server::refuses(const char *call) {
  const std::string text = call;
  const std::lock_guard lock(mutex_);
  const bool is_registration = text.starts_with("register_") || text.starts_with("unregister_");
  (is_registration ? registration_calls_ : log_calls_).push_back(text);
  return std::any_of(refusals_.begin(), refusals_.end(), [&](const Refusal &refusal) {
    return text.starts_with(refusal.start) && text.ends_with(refusal.end);
  });
}

void Recording_server::receive_line(std::span<const Log_item> items) {
  std::vector<Raw_item> raw(items.size());
  std::transform(items.begin(), items.end(), raw.begin(), raw_item);
  const std::lock_guard lock(mutex_);
  raw_records_.push_back(std::move(raw));
}

void Recording_server::refuse(const std::string &start, const std::string &end) {
  const std::lock_guard lock(mutex_);
  refusals_.push_back({start, end});
}

void Recording_server::refuse_function(const std::string &name) {
  refuse("register_function ", " " + name);
}

void Recording_server::refuse_variable(const std::string &name) {
  refuse("register_variable ", "." + name);
}

void Recording_server::refuse_to_unregister_function(const std::string &name, int was_registered) {
  refuse("unregister_function ", " " + name);
  set_answer_of_refused_unregistration(was_registered);
}

void Recording_server::refuse_to_unregister_variable(const std::string &name) {
  refuse("unregister_variable ", "." + name);
}

void Recording_server::refuse_lines() { refuse("create_line"); }
void Recording_server::refuse_buffers() { refuse("allocate "); }

void Recording_server::set_template(int code, const std::optional<std::string> &text) {
  templates_.push_back(text.value_or(""));
  set_message_template(code, text ? templates_.back().c_str() : nullptr);
}

void Recording_server::accept_everything() {
  const std::lock_guard lock(mutex_);
  refusals_.clear();
}

std::vector<Registered_function> Recording_server::functions() const {
  return {registered_functions().begin(), registered_functions().end()};
}

std::vector<Registered_variable> Recording_server::variables() const {
  return {registered_variables().begin(), registered_variables().end()};
}

Registered_function Recording_server::function(const std::string &name) const {
  return existing(find_function(name.c_str()), name);
}

Registered_variable Recording_server::variable(const std::string &name) const {
  return existing(find_variable(name.c_str()), name);
}

std::vector<std::string> Recording_server::registration_calls() const {
  const std::lock_guard lock(mutex_);
  return registration_calls_;
}

std::vector<std::string> Recording_server::log_calls() const {
  const std::lock_guard lock(mutex_);
  return log_calls_;
}

void Recording_server::forget_calls() {
  const std::lock_guard lock(mutex_);
  registration_calls_.clear();
  log_calls_.clear();
}

std::vector<Record> Recording_server::records() const {
  const std::lock_guard lock(mutex_);
  std::vector<Record> records(raw_records_.size());
  std::transform(raw_records_.begin(), raw_records_.end(), records.begin(), record_from);
  return records;
}

std::vector<std::vector<Raw_item>> Recording_server::raw_records() const {
  const std::lock_guard lock(mutex_);
  return raw_records_;
}

void Recording_server::forget_records() {
  const std::lock_guard lock(mutex_);
  raw_records_.clear();
}

}  // namespace halvex_test
