// The loadable functions: what adapters need to know about each, the registry, and one function at
// one call site of a statement.

#ifndef DOVRIN_HOST_FUNCTIONS_H
#define DOVRIN_HOST_FUNCTIONS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "dovrin/udf.h"
#include "dovrin_host/registrations.h"
#include "dovrin_host/result.h"

namespace dovrin_host {

// What an argument is for.
enum class Argument_kind { algorithm, length_in_bits, key, data, signature, digest_type };

// The type that a function expects: an integer for a length, else a string.
constexpr Item_result expected_type(Argument_kind kind) noexcept {
  return kind == Argument_kind::length_in_bits ? INT_RESULT : STRING_RESULT;
}

// True if functions read such a string as far as its length says, and need no NUL behind it.
constexpr bool is_read_by_length(Argument_kind kind) noexcept {
  return kind == Argument_kind::key || kind == Argument_kind::data ||
         kind == Argument_kind::signature;
}

// The SQL type of a result, which the registration does not tell: text, any bytes, or a 64-bit
// integer.
enum class Result_kind { text, binary, integer };

// What an engine wants to know about a function and a component does not register. Static storage.
struct Function_description {
  std::string_view name;
  std::span<const Argument_kind> arguments;  // in their order; all of them are mandatory
  Result_kind result = Result_kind::binary;
  bool is_deterministic = false;  // equal arguments give equal results, whatever the variables are

  // True if one of the arguments is of that kind.
  bool has(Argument_kind kind) const noexcept;

  // The expected type of the argument at `position`, counted from 0; STRING_RESULT behind the last.
  Item_result expected_type_at(std::size_t position) const noexcept;

  // True if a string at `position` needs a NUL behind it; true behind the last.
  bool needs_terminator_at(std::size_t position) const noexcept;
};

// The functions of the Halvex encryption component, in the order of their names. Any thread.
std::span<const Function_description> function_descriptions() noexcept;

// The description of the function `name`. For a function of another component it is nameless and
// without arguments: binary result, not deterministic. Any thread.
const Function_description &describe_function(std::string_view name) noexcept;

// One loadable function as it was registered.
struct Function_definition {
  std::string name;
  Item_result result_type = STRING_RESULT;
  Udf_func_any row = nullptr;
  Udf_func_init init = nullptr;      // may be null
  Udf_func_deinit deinit = nullptr;  // may be null
};

// A function in the registry, with the number of its open instances.
struct Registered_function {
  Function_definition definition;
  std::atomic<std::size_t> open_instances{0};
};

// Keeps a function registered, and so its component loaded. Movable; empty when the function is
// unknown.
class Function_pin {
 public:
  Function_pin() = default;
  explicit Function_pin(std::shared_ptr<Registered_function> function) noexcept;
  Function_pin(Function_pin &&other) noexcept = default;
  Function_pin &operator=(Function_pin &&other) noexcept;
  ~Function_pin();

  explicit operator bool() const { return function_ != nullptr; }

  // Only if not empty.
  const Function_definition &definition() const { return function_->definition; }

 private:
  void release() noexcept;

  std::shared_ptr<Registered_function> function_;
};

// A registered function, for display.
struct Function_info {
  std::string name;
  Item_result result_type = STRING_RESULT;

  bool operator==(const Function_info &) const = default;
};

// Names are compared byte by byte: an engine whose SQL ignores case passes the name as it was
// registered. Any thread may call anything at any time; no component code runs inside.
class Function_registry {
 public:
  enum class Removal { removed, unknown, in_use };

  // False if the name is taken, the definition lacks a name or a row callback, or the result is
  // neither a string nor an integer. A function with an owner can be pinned after publish(owner).
  [[nodiscard]] bool add(Function_definition definition, Owner owner);

  // Changes nothing while instances are open, unless `caller` is not the function's owner. Then the
  // caller is a destructor of the component as the process ends, and has to be obeyed: the function
  // is only unpublished, and its name stays taken.
  Removal remove(std::string_view name, Owner caller);

  // Pins the function; empty if none of that name is published.
  Function_pin pin(std::string_view name);

  // The published functions in the order of their names.
  std::vector<Function_info> list() const;

  // Lets everybody use what `owner` registered.
  void publish(Owner owner);

  // Prevents further instances of the owner's functions. If some are open it changes nothing.
  // Returns the number of open instances.
  std::size_t unpublish_unless_open(Owner owner);

  // Open instances of the owner's functions.
  std::size_t open_instances(Owner owner) const;

  // Removes what `owner` left behind.
  void drop(Owner owner);

 private:
  std::size_t count_open(Owner owner) const;

  mutable std::mutex mutex_;  // guards the entries; pins are released without it
  Registrations<Registered_function> functions_;
};

// One SQL value as an argument. It borrows the bytes of a string, which must live until the row is
// done.
class Argument {
 public:
  // Any bytes. Where the function needs a NUL behind them, the instance makes a copy that ends in
  // one, and wipes it after the row.
  static Argument string(std::string_view bytes) { return {STRING_RESULT, bytes, false}; }

  // Bytes that the engine has followed by a NUL, which the length leaves out: no copy is made.
  static Argument terminated_string(std::string_view bytes) { return {STRING_RESULT, bytes, true}; }

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

// What one row gave.
struct Row_result {
  enum class Kind {
    null,
    string,   // of a string function
    integer,  // of an integer function
    error     // the statement should fail
  };

  Kind kind = Kind::null;
  std::string_view text{};  // the string's bytes, or the error's sentence; valid until the next row
  long long integer = 0;

  bool operator==(const Row_result &) const = default;
};

// An engine may leave its own functions by longjmp, past these objects.
static_assert(std::is_trivially_destructible_v<Argument>);
static_assert(std::is_trivially_destructible_v<Row_result>);

// The name of the function whose row the calling thread runs; empty outside of rows.
std::string_view running_function() noexcept;

// One function at one call site of one statement. One thread at a time; rows may come from
// different threads.
class Function_instance {
 public:
  // Runs the function's init for arguments of these types. Init sees number and types alone: every
  // value is null, every argument may be NULL, attribute names are empty. A rejection is a failure
  // with exactly the component's text. Exceptions of the component pass, after its deinit has run.
  static Result<std::unique_ptr<Function_instance>> open(Function_pin function,
                                                         std::span<const Item_result> types);

  Function_instance(const Function_instance &) = delete;
  Function_instance &operator=(const Function_instance &) = delete;

  // Runs the function's deinit, wipes the buffers and releases the pin.
  ~Function_instance();

  const std::string &name() const { return function_.definition().name; }
  Item_result result_type() const { return function_.definition().result_type; }

  // True if number and types of the arguments are those of `open`.
  bool accepts(std::span<const Argument> arguments) const;

  // Runs one row. Arguments that accepts() rejects, a key beyond the limits of key_limits.h (in
  // both cases the function is not called) or an error flag set by the function give an error with
  // a sentence that names the function. Exceptions of the component pass, after the copies of the
  // arguments are wiped.
  //
  // The thread's OpenSSL error queue is as before afterwards: what others left there is no cause of
  // this row's failure. Only marks on it (ERR_set_mark) are lost.
  Row_result row(std::span<const Argument> arguments);

 private:
  class Copies_guard;

  // Bytes a string function may use for its result without a buffer of its own.
  static constexpr std::size_t result_capacity = 255;

  union Number {
    long long integer;
    double real;
  };

  Function_instance(Function_pin function, std::span<const Item_result> types);

  Status run_init();
  bool may_run_in_small_context(std::span<const Argument> arguments) const;
  std::optional<Row_result> small_context_row();
  Row_result call_row();
  Row_result string_row();
  Row_result integer_row();
  Row_result error(const std::string &what);
  std::string describe_excessive_key(std::span<const Argument> arguments) const;
  bool needs_copy(const Argument &argument, std::size_t position) const;
  void fill_arguments(std::span<const Argument> arguments);
  void make_room(std::size_t needed);
  bool holds_in_copies(const char *pointer) const;
  void wipe_copies() noexcept;

  Function_pin function_;
  const Function_description &description_;
  const bool has_key_;
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

  // Copies of the strings that came without a NUL and need one, one after the other.
  std::unique_ptr<char[]> copies_;
  std::size_t copies_capacity_ = 0;
  std::size_t copies_length_ = 0;

  std::array<char, result_capacity + 1> result_{};
  std::string error_;  // of the last row that failed
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_FUNCTIONS_H
