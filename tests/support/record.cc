#include "support/record.h"

#include <ostream>
#include <tuple>

namespace halvex_test {
namespace {

constexpr const char *message_start = "Component component_halvex_encryption reported: '";
constexpr const char *separator = " | ";

Record component_record(long long priority, long long code, long long line, const std::string &file,
                        const std::string &function, const std::vector<std::string> &arguments) {
  return {priority,
          code,
          "component:component_halvex_encryption",
          line,
          file,
          function,
          message_of(arguments)};
}

bool lines_agree(long long one, long long other) {
  return one == other || (one == any_line && other > 0) || (other == any_line && one > 0);
}

}  // namespace

bool Record::operator==(const Record &other) const {
  return lines_agree(line, other.line) &&
         std::tie(priority, code, component, file, function, message) ==
             std::tie(other.priority, other.code, other.component, other.file, other.function,
                      other.message);
}

std::ostream &operator<<(std::ostream &out, const Record &record) {
  return out << "{priority " << record.priority << ", code " << record.code << ", "
             << record.component << ", line " << record.line << ", file " << record.file
             << ", function " << record.function << ", message \"" << record.message << "\"}";
}

std::ostream &operator<<(std::ostream &out, const Raw_item &item) {
  out << "{type " << item.type << ", ";
  if (const auto *number = std::get_if<long long>(&item.value)) {
    out << *number;
  } else if (const auto *text = std::get_if<std::string>(&item.value)) {
    out << '"' << *text << '"';
  } else {
    out << "no value";
  }
  return out << ", set by " << (item.setter.empty() ? "nothing" : item.setter) << ", flags "
             << item.flags << '}';
}

std::string message_of(const std::vector<std::string> &arguments) {
  std::string message = message_start;
  for (size_t i = 0; i < arguments.size(); ++i) {
    message += (i == 0 ? "" : separator) + arguments[i];
  }
  return message + "'";
}

Record error_record(long long code, long long line, const std::string &file,
                    const std::string &function, const std::vector<std::string> &arguments) {
  return component_record(1, code, line, file, function, arguments);
}

Record warning_record(long long code, long long line, const std::string &file,
                      const std::string &function, const std::vector<std::string> &arguments) {
  return component_record(2, code, line, file, function, arguments);
}

Record openssl_record(const std::string &function_name, const std::string &algorithm,
                      const std::string &openssl_text) {
  return error_record(13928, 118, "utilities", "handle_openssl_error",
                      {function_name, algorithm, openssl_text});
}

std::vector<std::string> arguments_of(const Record &record) {
  const std::string start = message_start;
  if (!record.message.starts_with(start) || !record.message.ends_with('\'')) {
    return {};
  }
  std::vector<std::string> arguments;
  const std::string list =
      record.message.substr(start.size(), record.message.size() - start.size() - 1);
  size_t begin = 0;
  for (size_t end = list.find(separator); end != std::string::npos;
       end = list.find(separator, begin)) {
    arguments.push_back(list.substr(begin, end - begin));
    begin = end + std::string(separator).size();
  }
  arguments.push_back(list.substr(begin));
  return arguments;
}

}  // namespace halvex_test
