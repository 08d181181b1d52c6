#include "dovrin_host/function_instance.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

namespace dovrin_host {
namespace {

// What a nameless attribute or an empty string points to. Writable, since the interface's type is.
char *empty_text() {
  static char text[1] = {'\0'};
  return text;
}

bool travels_as_bytes(Item_result type) { return type != INT_RESULT && type != REAL_RESULT; }

bool needs_copy(const Argument &argument) {
  return travels_as_bytes(argument.type()) && !argument.is_null() && !argument.is_terminated();
}

}  // namespace

// Wipes the copies of one row's arguments, whichever way the row ends.
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
    Function_use function, std::span<const Item_result> types) {
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

Function_instance::Function_instance(Function_use function, std::span<const Item_result> types)
    : function_{std::move(function)},
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

Row_value<std::string_view> Function_instance::string_row(std::span<const Argument> arguments) {
  if (result_type() == INT_RESULT || !accepts(arguments)) {
    return {.is_null = true, .error = true};
  }
  wipe_copies();
  Copies_guard guard{*this};
  fill_arguments(arguments);

  const auto row = reinterpret_cast<Udf_func_string>(function_.definition().row);
  unsigned long length = result_capacity;
  unsigned char is_null = 0;
  unsigned char error = 0;
  const char *const bytes = row(&instance_, &args_, result_.data(), &length, &is_null, &error);
  if (bytes == nullptr || is_null != 0 || error != 0) {
    return {.is_null = true, .error = error != 0};
  }
  if (holds_in_copies(bytes)) {
    guard.keep();
  }
  return {.value = {bytes, length}};
}

Row_value<long long> Function_instance::integer_row(std::span<const Argument> arguments) {
  if (result_type() != INT_RESULT || !accepts(arguments)) {
    return {.is_null = true, .error = true};
  }
  wipe_copies();
  const Copies_guard guard{*this};
  fill_arguments(arguments);

  const auto row = reinterpret_cast<Udf_func_longlong>(function_.definition().row);
  unsigned char is_null = 0;
  unsigned char error = 0;
  const long long value = row(&instance_, &args_, &is_null, &error);
  if (is_null != 0 || error != 0) {
    return {.is_null = true, .error = error != 0};
  }
  return {.value = value};
}

void Function_instance::fill_arguments(std::span<const Argument> arguments) {
  std::size_t needed = 0;
  for (const Argument &argument : arguments) {
    needed += needs_copy(argument) ? argument.bytes().size() + 1 : 0;
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
    } else if (argument.is_terminated()) {
      // The interface's pointers are not const, but a function only reads through them.
      pointers_[i] = bytes.data() == nullptr ? empty_text() : const_cast<char *>(bytes.data());
    } else {
      pointers_[i] = free_room;
      free_room = std::ranges::copy(bytes, free_room).out;
      *free_room++ = '\0';
    }
  }
  copies_length_ = needed;
}

void Function_instance::make_room(std::size_t needed) {
  if (needed > copies_capacity_) {
    copies_ = std::make_unique<char[]>(needed);
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
