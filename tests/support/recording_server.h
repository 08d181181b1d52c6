// The fake server with every call recorded, and refusals by name.

#ifndef HALVEX_TESTS_SUPPORT_RECORDING_SERVER_H
#define HALVEX_TESTS_SUPPORT_RECORDING_SERVER_H

#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/fake_server.h"
#include "support/record.h"

namespace halvex_test {

// Resets the fake server and observes it; one at a time. Must outlive the component that uses it.
// The component may call from any thread.
class Recording_server : private Call_observer {
 public:
  Recording_server();
  // Aborts with a message if a log line or message buffer was not released.
  ~Recording_server() override;

  // Refusals, in force until accept_everything().
  void refuse_function(const std::string &name);
  void refuse_variable(const std::string &name);
  // The function stays registered unless `was_registered`, which the component is told, is 0.
  void refuse_to_unregister_function(const std::string &name, int was_registered);
  void refuse_to_unregister_variable(const std::string &name);
  void refuse_lines();
  void refuse_buffers();
  // Replaces a code's template; nullopt means that the server has none.
  void set_template(int code, const std::optional<std::string> &text);
  // Ends all refusals. Templates stay.
  void accept_everything();

  // Everything registered at this moment, in the order of registration.
  [[nodiscard]] std::vector<Registered_function> functions() const;
  [[nodiscard]] std::vector<Registered_variable> variables() const;
  // Aborts if there is no such function or variable at this moment.
  [[nodiscard]] Registered_function function(const std::string &name) const;
  [[nodiscard]] Registered_variable variable(const std::string &name) const;

  // The registrations and unregistrations asked for so far, refused ones included, and the log
  // operations, in the words of Call_observer::refuses.
  [[nodiscard]] std::vector<std::string> registration_calls() const;
  [[nodiscard]] std::vector<std::string> log_calls() const;
  void forget_calls();

  // The submitted records, oldest first.
  [[nodiscard]] std::vector<Record> records() const;
  // The same records item by item, in the order of the adds.
  [[nodiscard]] std::vector<std::vector<Raw_item>> raw_records() const;
  void forget_records();

 private:
  // Calls that start and end with these texts.
  struct Refusal {
    std::string start;
    std::string end;
  };

  bool refuses(const char *call) override;
  void receive_line(std::span<const Log_item> items) override;
  void refuse(const std::string &start, const std::string &end = "");

  mutable std::mutex mutex_;
  std::vector<Refusal> refusals_;
  std::list<std::string> templates_;
  std::vector<std::string> registration_calls_;
  std::vector<std::string> log_calls_;
  std::vector<std::vector<Raw_item>> raw_records_;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_RECORDING_SERVER_H
