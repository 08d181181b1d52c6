// One use of a loadable function: init, rows, deinit.

#ifndef DOVRIN_HOST_FUNCTION_INSTANCE_H
#define DOVRIN_HOST_FUNCTION_INSTANCE_H

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "dovrin/udf.h"
#include "dovrin_host/function_registry.h"
#include "dovrin_host/result.h"

namespace dovrin_host {

// One SQL value on its way into a function. It borrows the bytes of a string, which must live until
// the row is done. Decimal numbers travel as the bytes of their text.
class Argument {
 public:
  // Any bytes. The instance makes a copy that ends in a NUL, and wipes it after the row.
  static Argument string(std::string_view bytes) { return {STRING_RESULT, bytes, false}; }

  // Bytes that the engine has followed by a NUL, which the length leaves out: no copy is made.
  static Argument terminated_string(std::string_view bytes) { return {STRING_RESULT, bytes, true}; }

  static Argument decimal(std::string_view text) { return {DECIMAL_RESULT, text, false}; }

  static Argument integer(long long value) {
    Argument argument{INT_RESULT, {}, true};
    argument.integer_ = value;
    return argument;
  }

  static Argument real(double value) {
    Argument argument{REAL_RESULT, {}, true};
    argument.real_ = value;
    return argument;
  }

  // An SQL NULL of the given type.
  static Argument null(Item_result type) {
    Argument argument{type, {}, true};
    argument.is_null_ = true;
    return argument;
  }

  Item_result type() const { return type_; }
  bool is_null() const { return is_null_; }
  std::string_view bytes() const { return bytes_; }
  bool is_terminated() const { return is_terminated_; }
  long long integer_value() const { return integer_; }
  double real_value() const { return real_; }

 private:
  Argument(Item_result type, std::string_view bytes, bool is_terminated)
      : type_{type}, is_terminated_{is_terminated}, bytes_{bytes} {}

  Item_result type_;
  bool is_null_ = false;
  bool is_terminated_;
  std::string_view bytes_;
  long long integer_ = 0;
  double real_ = 0;
};

// What one row gave. With `error` set the statement should fail; `value` counts only if neither
// flag is set.
template <typename T>
struct Row_value {
  bool is_null = false;
  bool error = false;
  T value{};
};

// One function at one call site of one statement. One thread at a time.
class Function_instance {
 public:
  // Runs the function's init for arguments of these types. A refusal is a failure with exactly the
  // component's text. Exceptions of the component pass, after its deinit has run.
  static Result<std::unique_ptr<Function_instance>> open(Function_use function,
                                                         std::span<const Item_result> types);

  Function_instance(const Function_instance &) = delete;
  Function_instance &operator=(const Function_instance &) = delete;

  // Runs the function's deinit, wipes the buffers and lets the component go.
  ~Function_instance();

  const std::string &name() const { return function_.definition().name; }
  Item_result result_type() const { return function_.definition().result_type; }

  // What init has set: whether the result may be NULL, its longest length, whether it is constant.
  const UDF_INIT &properties() const { return instance_; }

  // True if number and types of the arguments are those of `open`.
  bool accepts(std::span<const Argument> arguments) const;

  // One row of a string function. The bytes stay valid until the next row or the end of the
  // instance. Arguments that accepts() refuses, or a function of another type, give `error` without
  // a call. Exceptions of the component pass, after the copies of the arguments are wiped.
  Row_value<std::string_view> string_row(std::span<const Argument> arguments);

  // One row of an integer function; the rest as above.
  Row_value<long long> integer_row(std::span<const Argument> arguments);

 private:
  class Copies_guard;

  // Bytes a string function may use for its result without a buffer of its own.
  static constexpr std::size_t result_capacity = 255;

  union Number {
    long long integer;
    double real;
  };

  Function_instance(Function_use function, std::span<const Item_result> types);

  Status run_init();
  void fill_arguments(std::span<const Argument> arguments);
  void make_room(std::size_t needed);
  bool holds_in_copies(const char *pointer) const;
  void wipe_copies() noexcept;

  Function_use function_;
  UDF_INIT instance_{};
  std::vector<Item_result> types_;

  // What args_ points to, one element per argument.
  std::vector<Item_result> argument_types_;
  std::vector<char *> pointers_;
  std::vector<unsigned long> lengths_;
  std::vector<char> maybe_null_;
  std::vector<char *> attributes_;
  std::vector<unsigned long> attribute_lengths_;
  std::vector<Number> numbers_;
  UDF_ARGS args_{};

  // Copies of the strings that came without a NUL, one after the other.
  std::unique_ptr<char[]> copies_;
  std::size_t copies_capacity_ = 0;
  std::size_t copies_length_ = 0;

  std::array<char, result_capacity + 1> result_{};
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_FUNCTION_INSTANCE_H
