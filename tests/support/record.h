// One record of the error log as the tests compare it, and its raw items.

#ifndef HALVEX_TESTS_SUPPORT_RECORD_H
#define HALVEX_TESTS_SUPPORT_RECORD_H

#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

namespace halvex_test {

// Instead of an expected line, for reports whose line follows the source: equals any positive one.
constexpr long long any_line = -2;

// A submitted record. Items that the line did not hold stay -1 or "(none)".
struct Record {
  long long priority = -1;
  long long code = -1;
  std::string component = "(none)";
  long long line = -1;
  std::string file = "(none)";
  std::string function = "(none)";
  std::string message = "(none)";

  // Compares every field, lines as any_line allows.
  bool operator==(const Record &other) const;
};

// Prints every field, for failed assertions.
std::ostream &operator<<(std::ostream &out, const Record &record);

// One item of a submitted line, as it was built. `setter` is the operation that gave the value:
// "item_set_int", "item_set_cstring", "item_set_lexstring", or "" when none did.
struct Raw_item {
  int type = 0;
  std::variant<std::monostate, long long, std::string> value;
  std::string setter;
  unsigned int flags = 0;  // of add_item_with_key; 0 for add_item

  bool operator==(const Raw_item &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Raw_item &item);

// The message that the fake server's catalogue gives for these arguments: the component's tag, then
// the arguments separated by " | " between single quotes.
std::string message_of(const std::vector<std::string> &arguments);

// A whole record of the component at error or warning priority, with message_of(arguments).
Record error_record(long long code, long long line, const std::string &file,
                    const std::string &function, const std::vector<std::string> &arguments);
Record warning_record(long long code, long long line, const std::string &file,
                      const std::string &function, const std::vector<std::string> &arguments);

// The record of an OpenSSL failure: code 13928, with the text as ERR_error_string renders it.
Record openssl_record(const std::string &function_name, const std::string &algorithm,
                      const std::string &openssl_text);

// The arguments of a message made by message_of; empty if it has another form.
std::vector<std::string> arguments_of(const Record &record);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_RECORD_H
