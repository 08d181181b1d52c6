#include "support/call_site.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace halvex_test {
namespace {

[[noreturn]] void abort_with(const Registered_function &function, const char *why) {
  static_cast<void>(std::fprintf(stderr, "Call_site of %s: %s\n", function.name.c_str(), why));
  std::abort();
}

template <typename T>
std::string bytes_of(const T &value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

bool is_number(const Argument &argument) {
  return argument.type == INT_RESULT || argument.type == REAL_RESULT;
}

// Owned memory of exactly the argument's size, a string's terminator included; nothing for NULL.
std::unique_ptr<char[]> exact_copy(const Argument &argument) {
  if (!argument.value) {
    return nullptr;
  }
  const size_t size = argument.value->size() + (is_number(argument) ? 0 : 1);
  auto copy = std::make_unique<char[]>(size);
  std::memcpy(copy.get(), argument.value->c_str(), size);
  return copy;
}

}  // namespace

// The arguments in the server's shape. Every array has exactly as many elements as there are
// arguments.
struct Call_site::Arguments {
  explicit Arguments(const std::vector<Argument> &values)
      : types(std::make_unique<Item_result[]>(values.size())),
        pointers(std::make_unique<char *[]>(values.size())),
        lengths(std::make_unique<unsigned long[]>(values.size())) {
    for (size_t i = 0; i < values.size(); ++i) {
      owned.push_back(exact_copy(values[i]));
      types[i] = values[i].type;
      pointers[i] = owned.back().get();
      lengths[i] = values[i].value && !is_number(values[i]) ? values[i].value->size() : 0;
    }
    record.arg_count = static_cast<unsigned int>(values.size());
    record.arg_type = types.get();
    record.args = pointers.get();
    record.lengths = lengths.get();
  }

  std::vector<std::unique_ptr<char[]>> owned;
  std::unique_ptr<Item_result[]> types;
  std::unique_ptr<char *[]> pointers;
  std::unique_ptr<unsigned long[]> lengths;
  UDF_ARGS record{};
};

Argument::Argument(const char *text) : value(text) {}

Argument::Argument(const std::string &s) : value(s) {}

Argument::Argument(int number) : Argument(static_cast<long long>(number)) {}

Argument::Argument(long long number) : type(INT_RESULT), value(bytes_of(number)) {}

Argument::Argument(double number) : type(REAL_RESULT), value(bytes_of(number)) {}

Argument null_string() { return {}; }

Argument null_integer() {
  Argument argument;
  argument.type = INT_RESULT;
  return argument;
}

Call_site::Call_site(const Registered_function &function, const std::vector<Argument> &arguments)
    : function_(function), first_arguments_(arguments), instance_(std::make_unique<UDF_INIT>()) {
  instance_->maybe_null = function.result_type == INT_RESULT;
  instance_->decimals = 31;
  instance_->max_length = unset_length;
  instance_->ptr = reinterpret_cast<char *>(instance_.get());  // no array: deinit must not free it
  instance_->const_item = true;

  Arguments in_server_shape(arguments);
  const auto message = std::make_unique<char[]>(DOVRIN_UDF_MESSAGE_SIZE);
  if (!run_init(function_, *instance_, in_server_shape.record, message.get())) {
    rejection_ = message.get();
  }
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (in_server_shape.types[i] != arguments[i].type) {
      abort_with(function_, "init changed the type of an argument");
    }
  }
}

Call_site::~Call_site() { run_deinit(function_, *instance_); }

Row_result Call_site::row(const std::vector<Argument> &arguments) {
  if (rejection_) {
    abort_with(function_, "a row was asked for after a rejected init");
  }
  Arguments in_server_shape(arguments);
  unsigned char is_null = 0;
  const Raw_row row = run_row(function_, *instance_, in_server_shape.record, is_null);
  Row_result result{row.is_null, "", row.integer, row.error, false};
  if (row.bytes != nullptr) {
    result.bytes.assign(row.bytes, row.length);
    result.in_instance_buffer = row.bytes == instance_->ptr;
  }
  return result;
}

Row_result Call_site::row() { return row(first_arguments_); }

Call_result call(const Registered_function &function, const std::vector<Argument> &arguments) {
  Call_site site(function, arguments);
  Call_result result;
  result.rejection = site.rejection();
  if (!result.rejection) {
    result.row = site.row();
  }
  return result;
}

Call_result call(const Recording_server &server, const std::string &function,
                 const std::vector<Argument> &arguments) {
  return call(server.function(function), arguments);
}

}  // namespace halvex_test
