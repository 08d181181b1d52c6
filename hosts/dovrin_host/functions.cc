#include "dovrin_host/functions.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <utility>

#include "dovrin_host/error_log.h"
#include "dovrin_host/key_limits.h"
#include "dovrin_host/row_context.h"

namespace dovrin_host {
namespace {

// What a nameless attribute or an empty string points to. Writable, since the interface's type is.
char *empty_text() {
  static char text[1] = {'\0'};
  return text;
}

thread_local std::string_view name_of_running_function;

// Makes a function the calling thread's running one while it lives.
class Running_scope {
 public:
  explicit Running_scope(std::string_view name)
      : previous_{std::exchange(name_of_running_function, name)} {}
  Running_scope(const Running_scope &) = delete;
  Running_scope &operator=(const Running_scope &) = delete;
  ~Running_scope() { name_of_running_function = previous_; }

 private:
  const std::string_view previous_;
};

// Puts aside what other users of OpenSSL left in the thread's error queue, and gives it back in
// place of what the row left there. Costs two looks at the queue if it is and stays empty.
class Foreign_errors {
 public:
  Foreign_errors() {
    while (ERR_peek_error() != 0) {
      errors_.emplace_back();
      take_oldest(errors_.back());
    }
  }
  Foreign_errors(const Foreign_errors &) = delete;
  Foreign_errors &operator=(const Foreign_errors &) = delete;
  ~Foreign_errors() {
    if (ERR_peek_error() != 0) {
      ERR_clear_error();
    }
    for (const Error &error : errors_) {
      give_back(error);
    }
  }

 private:
  struct Error {
    unsigned long code = 0;
    int line = 0;
    bool has_text = false;
    std::string file;
    std::string function;
    std::string text;
  };

  static void take_oldest(Error &error) {
    const char *file = nullptr;
    const char *function = nullptr;
    const char *text = nullptr;
    int flags = 0;
    error.code = ERR_get_error_all(&file, &error.line, &function, &text, &flags);
    error.has_text = (flags & ERR_TXT_STRING) != 0;
    error.file = file;
    error.function = function;
    error.text = error.has_text ? text : "";
  }

  static void give_back(const Error &error) {
    ERR_new();
    ERR_set_debug(error.file.c_str(), error.line, error.function.c_str());
    if (error.has_text) {
      ERR_set_error(ERR_GET_LIB(error.code), ERR_GET_REASON(error.code), "%s", error.text.c_str());
    } else {
      ERR_set_error(ERR_GET_LIB(error.code), ERR_GET_REASON(error.code), nullptr);
    }
  }

  std::vector<Error> errors_;
};

}  // namespace

std::string_view running_function() noexcept { return name_of_running_function; }

Function_pin::Function_pin(std::shared_ptr<Registered_function> function) noexcept
    : function_{std::move(function)} {
  if (function_) {
    ++function_->open_instances;
  }
}

Function_pin &Function_pin::operator=(Function_pin &&other) noexcept {
  if (this != &other) {
    release();
    function_ = std::move(other.function_);
  }
  return *this;
}

Function_pin::~Function_pin() { release(); }

void Function_pin::release() noexcept {
  if (function_) {
    --function_->open_instances;
    function_.reset();
  }
}

bool Function_registry::add(Function_definition definition, Owner owner) {
  const bool known_shape =
      definition.result_type == STRING_RESULT || definition.result_type == INT_RESULT;
  if (definition.name.empty() || definition.row == nullptr || !known_shape) {
    return false;
  }
  auto function = std::make_shared<Registered_function>();
  function->definition = std::move(definition);

  const std::lock_guard lock{mutex_};
  std::string name = function->definition.name;
  return functions_.add(std::move(name), owner, std::move(function));
}

Function_registry::Removal Function_registry::remove(std::string_view name, Owner caller) {
  const std::lock_guard lock{mutex_};
  const std::shared_ptr<Registered_function> function = functions_.find(name);
  if (!function) {
    return Removal::unknown;
  }
  if (function->open_instances > 0) {
    if (functions_.owner_of(name) == caller) {
      return Removal::in_use;
    }
    functions_.unpublish(name);
    return Removal::removed;
  }
  functions_.erase(name);
  return Removal::removed;
}

Function_pin Function_registry::pin(std::string_view name) {
  const std::lock_guard lock{mutex_};
  return Function_pin{functions_.find_published(name)};
}

std::vector<Function_info> Function_registry::list() const {
  const std::lock_guard lock{mutex_};
  std::vector<Function_info> functions;
  functions_.for_each_published([&](const Registered_function &function) {
    functions.push_back({function.definition.name, function.definition.result_type});
  });
  return functions;
}

void Function_registry::publish(Owner owner) {
  const std::lock_guard lock{mutex_};
  functions_.publish(owner);
}

std::size_t Function_registry::unpublish_unless_open(Owner owner) {
  const std::lock_guard lock{mutex_};
  const std::size_t open = count_open(owner);
  if (open == 0) {
    functions_.unpublish(owner);
  }
  return open;
}

std::size_t Function_registry::open_instances(Owner owner) const {
  const std::lock_guard lock{mutex_};
  return count_open(owner);
}

void Function_registry::drop(Owner owner) {
  const std::lock_guard lock{mutex_};
  functions_.erase_all(owner);
}

std::size_t Function_registry::count_open(Owner owner) const {
  std::size_t open = 0;
  functions_.for_each_of(
      owner, [&](const Registered_function &function) { open += function.open_instances; });
  return open;
}

// Scope guard: wipes the copies of one row's arguments.
class Function_instance::Copies_guard {
 public:
  explicit Copies_guard(Function_instance &instance) : instance_{instance} {}
  Copies_guard(const Copies_guard &) = delete;
  Copies_guard &operator=(const Copies_guard &) = delete;
  ~Copies_guard() {
    if (!kept_) {
      instance_.wipe_copies();
    }
  }

  // For a result that lies inside the copies: they stay until the next row.
  void keep() { kept_ = true; }

 private:
  Function_instance &instance_;
  bool kept_ = false;
};

Result<std::unique_ptr<Function_instance>> Function_instance::open(
    Function_pin function, std::span<const Item_result> types) {
  if (!function) {
    return Status::failure("The function is not installed.");
  }
  std::unique_ptr<Function_instance> instance{new Function_instance{std::move(function), types}};
  Status accepted = instance->run_init();
  if (!accepted.ok()) {
    return accepted;
  }
  return instance;
}

Function_instance::Function_instance(Function_pin function, std::span<const Item_result> types)
    : function_{std::move(function)},
      description_{describe_function(function_.definition().name)},
      has_key_{description_.has(Argument_kind::key)},
      types_{types.begin(), types.end()},
      argument_types_{types_},
      pointers_(types.size(), nullptr),
      lengths_(types.size(), 0),
      maybe_null_(types.size(), 1),
      attributes_(types.size(), empty_text()),
      attribute_lengths_(types.size(), 0),
      numbers_(types.size()) {
  instance_.maybe_null = true;
  args_.arg_count = static_cast<unsigned int>(types.size());
  args_.arg_type = argument_types_.data();
  args_.args = pointers_.data();
  args_.lengths = lengths_.data();
  args_.maybe_null = maybe_null_.data();
  args_.attributes = attributes_.data();
  args_.attribute_lengths = attribute_lengths_.data();
}

Function_instance::~Function_instance() {
  if (const Udf_func_deinit deinit = function_.definition().deinit) {
    deinit(&instance_);
  }
  wipe_copies();
  OPENSSL_cleanse(result_.data(), result_.size());
}

Status Function_instance::run_init() {
  const Udf_func_init init = function_.definition().init;
  std::array<char, DOVRIN_UDF_MESSAGE_SIZE> message{};
  if (init == nullptr || !init(&instance_, &args_, message.data())) {
    return {};
  }
  message.back() = '\0';
  return Status::failure(message.data());
}

bool Function_instance::accepts(std::span<const Argument> arguments) const {
  return std::ranges::equal(arguments, types_, {}, &Argument::type);
}

Row_result Function_instance::row(std::span<const Argument> arguments) {
  if (!accepts(arguments)) {
    return error("was opened for arguments of other types");
  }
  const Foreign_errors foreign_errors;
  if (has_key_) {
    if (const std::string excess = describe_excessive_key(arguments); !excess.empty()) {
      return error("was given " + excess);
    }
  }
  wipe_copies();
  Copies_guard guard{*this};
  fill_arguments(arguments);

  const Running_scope running{name()};
  std::optional<Row_result> first;
  if (has_key_ && may_run_in_small_context(arguments)) {
    first = small_context_row();
  }
  const Row_result result = first ? *first : call_row();
  if (result.kind == Row_result::Kind::string && holds_in_copies(result.text.data())) {
    guard.keep();
  }
  return result;
}

bool Function_instance::may_run_in_small_context(std::span<const Argument> arguments) const {
  if (arguments.size() != description_.arguments.size()) {
    return false;
  }
  for (std::size_t i = 0; i < description_.arguments.size(); ++i) {
    if (description_.arguments[i] == Argument_kind::key &&
        !reads_alike_in_small_context(arguments[i].bytes())) {
      return false;
    }
  }
  return true;
}

// Nothing if the row has to run in the default context.
std::optional<Row_result> Function_instance::small_context_row() {
  const Small_context_scope scope;
  if (!scope) {
    return std::nullopt;
  }
  const Discarded_records records;
  try {
    const Row_result result = call_row();
    const bool is_value =
        result.kind == Row_result::Kind::string || result.kind == Row_result::Kind::integer;
    if (is_value && records.count() == 0) {
      return result;
    }
  } catch (const std::bad_alloc &) {
    // The default context's run decides.
  }
  return std::nullopt;
}

Row_result Function_instance::call_row() {
  return result_type() == INT_RESULT ? integer_row() : string_row();
}

Row_result Function_instance::string_row() {
  const auto row = reinterpret_cast<Udf_func_string>(function_.definition().row);
  unsigned long length = result_capacity;
  unsigned char is_null = 0;
  unsigned char failed = 0;
  const char *const bytes = row(&instance_, &args_, result_.data(), &length, &is_null, &failed);
  if (failed != 0) {
    return error("reported an error");
  }
  if (bytes == nullptr || is_null != 0) {
    return {};
  }
  return {.kind = Row_result::Kind::string, .text = {bytes, length}};
}

Row_result Function_instance::integer_row() {
  const auto row = reinterpret_cast<Udf_func_longlong>(function_.definition().row);
  unsigned char is_null = 0;
  unsigned char failed = 0;
  const long long value = row(&instance_, &args_, &is_null, &failed);
  if (failed != 0) {
    return error("reported an error");
  }
  if (is_null != 0) {
    return {};
  }
  return {.kind = Row_result::Kind::integer, .integer = value};
}

// Empty if none is beyond the limits.
std::string Function_instance::describe_excessive_key(std::span<const Argument> arguments) const {
  const std::size_t described = std::min(arguments.size(), description_.arguments.size());
  for (std::size_t i = 0; i < described; ++i) {
    if (description_.arguments[i] == Argument_kind::key) {
      if (std::string excess = describe_excess(arguments[i].bytes()); !excess.empty()) {
        return excess;
      }
    }
  }
  return {};
}

Row_result Function_instance::error(const std::string &what) {
  error_ = "The function " + name() + ' ' + what + '.';
  return {.kind = Row_result::Kind::error, .text = error_};
}

bool Function_instance::needs_copy(const Argument &argument, std::size_t position) const {
  return argument.type() == STRING_RESULT && !argument.is_null() && !argument.is_terminated() &&
         description_.needs_terminator_at(position);
}

void Function_instance::fill_arguments(std::span<const Argument> arguments) {
  std::size_t needed = 0;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    needed += needs_copy(arguments[i], i) ? arguments[i].bytes().size() + 1 : 0;
  }
  make_room(needed);

  char *free_room = copies_.get();
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const Argument &argument = arguments[i];
    const std::string_view bytes = argument.bytes();
    argument_types_[i] = argument.type();
    lengths_[i] = bytes.size();
    if (argument.is_null()) {
      pointers_[i] = nullptr;
    } else if (argument.type() == INT_RESULT) {
      numbers_[i].integer = argument.integer_value();
      pointers_[i] = reinterpret_cast<char *>(&numbers_[i].integer);
    } else if (argument.type() == REAL_RESULT) {
      numbers_[i].real = argument.real_value();
      pointers_[i] = reinterpret_cast<char *>(&numbers_[i].real);
    } else if (!needs_copy(argument, i)) {
      // The interface's pointers are not const, but a function only reads through them.
      pointers_[i] = bytes.data() == nullptr ? empty_text() : const_cast<char *>(bytes.data());
    } else {
      pointers_[i] = free_room;
      bytes.copy(free_room, bytes.size());
      free_room[bytes.size()] = '\0';
      free_room += bytes.size() + 1;
    }
  }
  copies_length_ = needed;
}

void Function_instance::make_room(std::size_t needed) {
  if (needed > copies_capacity_) {
    copies_ = std::make_unique_for_overwrite<char[]>(needed);
    copies_capacity_ = needed;
  }
}

bool Function_instance::holds_in_copies(const char *pointer) const {
  const std::less<const char *> before;
  return !before(pointer, copies_.get()) && before(pointer, copies_.get() + copies_length_);
}

void Function_instance::wipe_copies() noexcept {
  if (copies_length_ > 0) {
    OPENSSL_cleanse(copies_.get(), copies_length_);
    copies_length_ = 0;
  }
}

}  // namespace dovrin_host
