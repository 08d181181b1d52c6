// The server that tests load the component into. It uses neither operator new nor libcrypto, only
// fixed tables and malloc: what a component allocates is all that the allocation counters see.
// Every operation that a server may refuse asks the fault plan (Fault_source::server) first.
//
// Service tables carry no context, so a process has one such server. Log operations may come from
// many threads at once; registrations, and all functions here that change the server, from one
// thread at a time.

#ifndef HALVEX_TESTS_SUPPORT_FAKE_SERVER_H
#define HALVEX_TESTS_SUPPORT_FAKE_SERVER_H

#include <array>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <ostream>
#include <span>
#include <string_view>

#include "dovrin/component.h"
#include "dovrin/system_variable.h"
#include "dovrin/udf.h"

namespace halvex_test {

// A text of at most 127 bytes; longer ones are truncated.
class Short_text {
 public:
  Short_text() = default;
  explicit Short_text(const char *text) {
    static_cast<void>(std::snprintf(bytes_.data(), bytes_.size(), "%s", text));
  }
  [[nodiscard]] const char *c_str() const { return bytes_.data(); }
  bool operator==(std::string_view other) const { return other == bytes_.data(); }
  friend std::ostream &operator<<(std::ostream &out, const Short_text &text) {
    return out << text.c_str();
  }

 private:
  std::array<char, 128> bytes_{};
};

// What a component passed when it registered an SQL function.
struct Registered_function {
  Short_text name;
  Item_result result_type;
  Udf_func_any row;
  Udf_func_init init;
  Udf_func_deinit deinit;
};

// What a component passed when it registered a system variable. Of a boolean variable only the
// first limit is set, to its default.
struct Registered_variable {
  Short_text name;
  Short_text component;
  int type_flag;
  Short_text comment;
  Sys_var_check check;
  Sys_var_update update;
  std::array<int, 4> limits;  // default, minimum, maximum, block size
  void *storage;
};

// One item of a log line. `setter` is the operation that gave its value, or "" if none did. The
// text is read when the line is submitted.
struct Log_item {
  int type;
  unsigned int flags;  // of add_item_with_key; 0 for add_item
  const char *setter;
  long long number;
  const char *text;
  std::size_t length;
  bool was_refused;  // a value was refused
};

// Sees every call that the server gets, from the thread that makes it.
class Call_observer {
 public:
  Call_observer() = default;
  virtual ~Call_observer() = default;
  Call_observer(const Call_observer &) = delete;
  Call_observer &operator=(const Call_observer &) = delete;

  // Before a call is served. `call` is the operation with its arguments: "register_function
  // create_digest", "add_item 65536", "item_set_int 1", "allocate 8192", "has_item 2 (null)" for a
  // null line. Returns whether the server shall refuse it, which only operations that can fail
  // heed.
  virtual bool refuses(const char *call) = 0;
  // The items of a line that was submitted, in the order of the adds.
  virtual void receive_line(std::span<const Log_item> items) = 0;
};

// What the last record that this thread submitted contained.
struct Last_record {
  long long code;
  long long priority;
  char message[8192];
};

// The table of a service, or null for an unknown name.
[[nodiscard]] void *service_table(const char *name);
// Writes the tables into all slots that the component requires. Aborts on an unknown service.
void fill_slots(const Dovrin_component &component);

// What is registered, in the order of registration, and one entry by name or null. Pointers are
// valid until the next registration or unregistration.
[[nodiscard]] std::span<const Registered_function> registered_functions();
[[nodiscard]] std::span<const Registered_variable> registered_variables();
[[nodiscard]] const Registered_function *find_function(const char *name);
[[nodiscard]] const Registered_variable *find_variable(const char *name);

// Drops all registrations: what a component that could not unregister them has left.
void forget_registrations();

// What the server reports as `was_registered` when it refuses to unregister a function: that it is
// registered, and it stays so (not 0; 1 is the default), or that there is none, and then it is
// gone.
void set_answer_of_refused_unregistration(int was_registered);
// Whether a name can be registered twice; a server accepts none twice, which is the default.
void accept_duplicate_names(bool accepted);
// Replaces the message template of a code. The text is not copied; null means that the server has
// no template for the code.
void set_message_template(int code, const char *text);
// Null for none. It must exist until it is replaced.
void set_call_observer(Call_observer *observer);
// No registrations, no observer, default settings and templates, all counts at 0.
void reset_fake_server();

// Records submitted by all threads; those that lacked one of the seven items or had them out of
// order, unless the server had refused a part; those of one error code.
[[nodiscard]] std::size_t submitted_records();
[[nodiscard]] std::size_t malformed_records();
[[nodiscard]] std::size_t submitted_records_of(long long code);
// Log lines and message buffers that are not released.
[[nodiscard]] long open_lines();
[[nodiscard]] long open_buffers();

[[nodiscard]] const Last_record &last_record();

enum class Set_result { accepted, rejected };

// Sets a system variable as a statement does: through its check and update callbacks, or straight
// into its storage (atomically, as the reader may be another thread) if it has none. nullopt is a
// value that cannot be read as an integer. Aborts if there is no such variable, or if the callbacks
// use the storage address or leave an address after a rejection.
Set_result set_variable(const char *name, std::optional<long long> value);
// Sets rsa_support_legacy_padding.
void switch_legacy_padding(bool on);
// The value in an integer variable's storage.
[[nodiscard]] int integer_value(const char *name);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_FAKE_SERVER_H
