// A server for tests: it offers the six services a component requires, records every call, and can
// refuse any of them.
//
// Service operations have no context argument, so they serve the one Fake_server that exists. It
// must outlive the component that uses it. Every operation may be called from any thread.

#ifndef HALVEX_TESTS_SUPPORT_FAKE_SERVER_H
#define HALVEX_TESTS_SUPPORT_FAKE_SERVER_H

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dovrin/component.h"
#include "dovrin/services.h"
#include "support/record.h"

namespace halvex_test {

// What a component handed over when it registered a function.
struct Registered_function {
  std::string name;
  Item_result result_type = STRING_RESULT;
  Udf_func_any row = nullptr;
  Udf_func_init init = nullptr;
  Udf_func_deinit deinit = nullptr;
};

// What a component handed over when it registered a variable. `limits` is copied during the call:
// the four integers of an integer variable, or the one byte of a boolean.
struct Registered_variable {
  std::string component;
  std::string name;
  int type_flag = 0;
  std::string comment;
  Sys_var_check check = nullptr;
  Sys_var_update update = nullptr;
  std::vector<int> limits;
  void *storage = nullptr;
};

class Fake_server {
 public:
  // Becomes the server that the service tables serve. Aborts if there is one already.
  Fake_server();
  // Aborts with a message if a log line or message buffer was not given back.
  ~Fake_server();
  Fake_server(const Fake_server &) = delete;
  Fake_server &operator=(const Fake_server &) = delete;

  // The table of a service, or null if there is none of that name.
  static void *service(const std::string &name);
  // Writes the tables into all slots that the component requires. Aborts on an unknown service.
  static void fill_slots(const Dovrin_component &component);

  // Refusals, in force until accept_everything().
  void refuse_function(const std::string &name);
  void refuse_variable(const std::string &name);
  // The withdrawal is refused and the function stays registered; `was_registered` is what the
  // component is told.
  void refuse_function_withdrawal(const std::string &name, int was_registered);
  void refuse_variable_withdrawal(const std::string &name);
  void refuse_lines();
  void refuse_buffers();
  // Replaces a code's template; nothing means that the server gives a null pointer.
  void set_template(int code, const std::optional<std::string> &text);
  // Ends all refusals. Templates stay.
  void accept_everything();

  // Everything registered at this moment, in the order of registration.
  [[nodiscard]] std::vector<Registered_function> functions() const;
  [[nodiscard]] std::vector<Registered_variable> variables() const;
  // Aborts if there is no such function or variable at this moment.
  [[nodiscard]] Registered_function function(const std::string &name) const;
  [[nodiscard]] Registered_variable variable(const std::string &name) const;

  // The registrations and withdrawals asked for so far, refused ones included, each as
  // "operation name": "register_function create_digest", "withdraw_variable
  // component_halvex_encryption.maximum_rsa_key_size".
  [[nodiscard]] std::vector<std::string> registration_calls() const;
  // The log operations asked for so far: "create_line", "allocate 8192", "add_item 65536",
  // "item_set_int 1", "has_item 2", "message_template 13928", "format 8192", ... A null line or
  // item shows as " (null)" at the end.
  [[nodiscard]] std::vector<std::string> log_calls() const;
  void forget_calls();

  // The submitted records, oldest first.
  [[nodiscard]] std::vector<Record> records() const;
  // The same records item by item, in the order of the adds.
  [[nodiscard]] std::vector<std::vector<Raw_item>> raw_records() const;
  void forget_records();

  // Lines and buffers not yet given back.
  [[nodiscard]] size_t open_lines() const;
  [[nodiscard]] size_t open_buffers() const;

  // The operations behind the tables; components reach them only through those.
  struct Operations;

 private:
  friend struct Operations;

  mutable std::mutex mutex_;
  std::set<std::string> refused_functions_;
  std::set<std::string> refused_variables_;
  std::map<std::string, int> refused_function_withdrawals_;
  std::set<std::string> refused_variable_withdrawals_;
  bool refuse_lines_ = false;
  bool refuse_buffers_ = false;
  std::map<int, std::optional<std::string>> templates_;
  std::vector<Registered_function> functions_;
  std::vector<Registered_variable> variables_;
  std::vector<std::string> registration_calls_;
  std::vector<std::string> log_calls_;
  std::vector<Record> records_;
  std::vector<std::vector<Raw_item>> raw_records_;
  std::set<const Dovrin_log_line *> lines_;
  std::map<const void *, size_t> buffers_;
};

// How a set of a variable ended.
enum class Set_result { accepted, rejected };

// Sets an integer variable through its own check and update callbacks, as a server does. The
// update gets a storage address of the test's own, which it must not use.
Set_result set_integer_variable(const Registered_variable &variable, long long value);
// The same with a value that cannot be read as an integer.
Set_result set_unreadable_variable(const Registered_variable &variable);
// Sets a boolean variable that leaves check and update to the server.
void set_boolean_variable(const Registered_variable &variable, bool value);
// The value in an integer variable's storage.
int integer_value(const Registered_variable &variable);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_FAKE_SERVER_H
