// Calls of SQL functions as a server makes them, without operator new. Whatever breaks the rules of
// the interface aborts with a message.

#ifndef HALVEX_TESTS_SUPPORT_RAW_CALL_H
#define HALVEX_TESTS_SUPPORT_RAW_CALL_H

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "dovrin/udf.h"
#include "support/fake_server.h"

namespace halvex_test {

// Largest number of arguments that an Argument_array holds.
constexpr std::size_t most_arguments = 6;

// One SQL argument, not owned: its bytes are those of a string or of a long long or double, or null
// for SQL NULL. `length` is that of a string, without its terminator, and 0 for a number.
struct Argument_view {
  constexpr Argument_view() = default;  // a NULL string
  // Texts, which must be followed by a terminator; implicit, so that calls read like SQL.
  constexpr Argument_view(std::string_view text) : bytes(text.data()), length(text.size()) {}
  constexpr Argument_view(const char *text) : Argument_view(std::string_view(text)) {}
  Argument_view(const std::string &text) : Argument_view(std::string_view(text)) {}
  constexpr Argument_view(Item_result kind, const char *start, std::size_t size)
      : type(kind), bytes(start), length(size) {}

  Item_result type = STRING_RESULT;
  const char *bytes = nullptr;
  std::size_t length = 0;
};

template <long long value>
Argument_view integer() {
  static constexpr long long number = value;
  return {INT_RESULT, reinterpret_cast<const char *>(&number), 0};
}

// At most `most_arguments` arguments in the server's form.
class Argument_array {
 public:
  explicit Argument_array(std::span<const Argument_view> arguments);
  Argument_array(const Argument_array &) = delete;
  Argument_array &operator=(const Argument_array &) = delete;
  UDF_ARGS &get() { return record_; }

 private:
  std::array<Item_result, most_arguments> types_{};
  std::array<char *, most_arguments> args_{};
  std::array<unsigned long, most_arguments> lengths_{};
  UDF_ARGS record_{};
};

// What a row callback gave. `bytes` is null for an integer function and for SQL NULL.
struct Raw_row {
  const char *bytes = nullptr;
  unsigned long length = 0;
  long long integer = 0;
  bool is_null = false;
  bool error = false;
};

// Runs init; false if it rejects, with its text in `message` (DOVRIN_UDF_MESSAGE_SIZE bytes).
[[nodiscard]] bool run_init(const Registered_function &function, UDF_INIT &instance,
                            UDF_ARGS &arguments, char *message);
// Runs the row callback. `is_null` is its flag, 0 before, and set also if the callback throws.
Raw_row run_row(const Registered_function &function, UDF_INIT &instance, UDF_ARGS &arguments,
                unsigned char &is_null);
// Runs deinit, which is due also after a rejection.
void run_deinit(const Registered_function &function, UDF_INIT &instance);

// How one call (init, one row, deinit) ended.
struct Raw_result {
  enum class Ending { value, null, rejected, exception_in_init, exception_in_row };
  Ending ending = Ending::null;
  bool is_null = false;    // the row's flag
  bool error = false;      // the row's flag; no function sets it
  long long number = 0;    // result of an integer function
  std::size_t length = 0;  // length of a string result
  char bytes[12801] = {};  // a string result and the byte that follows it in the function's buffer
  char message[DOVRIN_UDF_MESSAGE_SIZE] = {};  // the rejection

  [[nodiscard]] std::string_view text() const { return {bytes, length}; }
  // Overwrites everything, so that no secret outlives the call's caller.
  void wipe();
};

// Runs init, row and deinit of `function` with at most `most_arguments` arguments. std::bad_alloc
// out of a callback is caught and reported, any other exception goes on. Deinit is called whatever
// happened.
void call(const Registered_function &function, std::span<const Argument_view> arguments,
          Raw_result &out);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_RAW_CALL_H
