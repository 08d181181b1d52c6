// The shipped object, opened as a server opens it and connected to the bare server, and calls of
// its functions that allocate nothing themselves.

#ifndef RELIABILITY_LOADED_COMPONENT_H
#define RELIABILITY_LOADED_COMPONENT_H

#include <cstddef>
#include <span>

#include "bare_server.h"
#include "dovrin/component.h"

namespace reliability {

// Largest number of arguments that a call here carries.
constexpr std::size_t most_arguments = 6;

// One argument of a call. `bytes` is not owned. SQL NULL is a string without bytes, or a number
// with `null_number`.
struct Argument {
  Item_result type = STRING_RESULT;
  const char *bytes = nullptr;
  std::size_t length = 0;
  long long number = 0;
  bool null_number = false;
};

// How one call (init, one row, deinit) ended.
struct Call_result {
  enum class Ending { value, null, refused, exception_in_init, exception_in_row };
  Ending ending = Ending::null;
  bool is_null = false;        // the row's flag
  bool error = false;          // the row's flag; no function sets it
  bool returned_null = false;  // the row's result was a null pointer
  long long number = 0;        // result of an integer function
  std::size_t length = 0;      // length of a string result
  char bytes[12801] = {};  // a string result and the byte that follows it in the function's buffer
  char message[DOVRIN_UDF_MESSAGE_SIZE] = {};  // the refusal

  // Overwrites everything, so that no secret outlives the call's caller.
  void wipe();
};

// Runs init, row and deinit of `function` with at most `most_arguments` arguments. std::bad_alloc
// out of a callback is caught and reported, any other exception goes on. Deinit is called whatever
// happened.
void call(const Registered_function &function, std::span<const Argument> arguments,
          Call_result &out);

// Opens the object on construction and closes it at the end, or earlier with `close`. One at a
// time, as the bare server is one.
class Loaded_component {
 public:
  // Loads `path` and connects its services; `descriptor` is null if that failed.
  explicit Loaded_component(const char *path);
  Loaded_component(const Loaded_component &) = delete;
  Loaded_component &operator=(const Loaded_component &) = delete;
  ~Loaded_component();

  [[nodiscard]] const Dovrin_component *descriptor() const { return descriptor_; }

  // Unloads the object: its destructors run, and its descriptor is gone.
  void close();

 private:
  void *library_;
  const Dovrin_component *descriptor_ = nullptr;
};

// Whether a file of this name is mapped into the process. Allocates nothing.
[[nodiscard]] bool is_mapped(const char *file_name);

}  // namespace reliability

#endif  // RELIABILITY_LOADED_COMPONENT_H
