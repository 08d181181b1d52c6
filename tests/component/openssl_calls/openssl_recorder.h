// Records the OpenSSL calls that the shipped component makes, and can let any of them fail.
//
// The test executable defines the OpenSSL functions that the component imports; the loaded object
// resolves to them, and they forward to libcrypto. Calls that libcrypto makes itself are not seen.
// One thread at a time.

#ifndef HALVEX_TESTS_COMPONENT_OPENSSL_RECORDER_H
#define HALVEX_TESTS_COMPONENT_OPENSSL_RECORDER_H

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace halvex_test {

// Calls to let fail: from its `occurrence`th call (counted from 1) on, `count` calls of `function`
// queue forced_error() and return `value`, or a null pointer. They do not reach libcrypto, unless
// `reaches_libcrypto`.
struct Forced_failure {
  std::string function;
  int occurrence = 1;
  int value = 0;
  int count = 1;
  bool reaches_libcrypto = false;
};

// The packed error that a forced failure queues, and its text as ERR_error_string renders it.
unsigned long forced_error();
std::string forced_error_text();
// Queues an error of another reason, as if left behind by the server, and its text.
void queue_stale_error();
std::string stale_error_text();
// The queue of this thread, oldest first; empties it.
std::vector<std::string> drain_error_queue();

// While it exists, every OpenSSL call of the component is recorded, and every destructor that it
// registers for its unloading, as "__cxa_atexit". At most one at a time.
class Openssl_recorder {
 public:
  Openssl_recorder();
  // With one call to let fail.
  explicit Openssl_recorder(Forced_failure failure);
  ~Openssl_recorder();
  Openssl_recorder(const Openssl_recorder &) = delete;
  Openssl_recorder &operator=(const Openssl_recorder &) = delete;

  // The calls in order, as "name arguments -> result". Objects are named by kind and order of
  // making: bio1, key1, key_ctx1, digest_ctx1 (a key context that belongs to a digest context is
  // borrowed_key_ctx1), digests by OpenSSL's name, other addresses as "data" or "null". Errors of
  // the queue show as 0 or their packed number.
  [[nodiscard]] const std::vector<std::string> &calls() const { return calls_; }
  // How often a function was called.
  [[nodiscard]] int count(const std::string &function) const;
  // The names of the objects that the component made and did not free.
  [[nodiscard]] std::vector<std::string> unfreed() const;
  // The calls after the last one that was let fail.
  [[nodiscard]] std::vector<std::string> calls_after_failure() const;
  // Is run before every call that frees a key.
  std::function<void()> before_key_is_freed = [] {};
  // All calls to let fail were reached.
  [[nodiscard]] bool failed() const { return failures_left_ == 0; }

  // For the defined functions.
  [[nodiscard]] bool is_to_fail(const std::string &function);
  [[nodiscard]] const Forced_failure &failure() const { return failure_; }
  void note(const std::string &call) { calls_.push_back(call); }
  std::string name_of(const void *object) const;
  std::string made(const std::string &kind, const void *object);
  std::string borrowed(const std::string &kind, const void *object);
  void freed(const void *object);

 private:
  Forced_failure failure_;
  int failures_left_ = 0;
  std::size_t last_failure_ = 0;  // its position in calls_
  std::vector<std::string> calls_;
  std::map<std::string, int> counts_;
  std::map<std::string, int> made_;
  std::map<const void *, std::string> live_;
  std::map<const void *, std::string> borrowed_;
};

// The names of the functions that are recorded.
const std::set<std::string> &recorded_functions();

}  // namespace halvex_test

#endif  // HALVEX_TESTS_COMPONENT_OPENSSL_RECORDER_H
