// One record of the error log, and how it reads as text.

#ifndef DOVRIN_HOST_LOG_RECORD_H
#define DOVRIN_HOST_LOG_RECORD_H

#include <chrono>
#include <string>

namespace dovrin_host {

// What one report says. A text that the report did not give is empty, a number 0.
struct Log_record {
  std::chrono::system_clock::time_point time;
  int priority = 0;  // 1 error, 2 warning; priority_name gives the word
  int code = 0;
  std::string symbol;       // the code's name
  std::string component;    // the reporter's tag, for instance "component:NAME"
  std::string function;     // the reporting function
  std::string source_file;  // without folder or ending
  long long source_line = 0;
  std::string message;  // any bytes: it may quote what a user passed
  std::string hint;     // what the user can do; empty if nothing is known

  bool operator==(const Log_record &) const = default;
};

// "error", "warning", or "note" for any other number. Static storage.
const char *priority_name(int priority) noexcept;

// The time as 2026-01-31T23:59:59.123456Z.
std::string render_time(std::chrono::system_clock::time_point time);

// One JSON object on one line, without a line end. Bytes that are not UTF-8 become U+FFFD. Throws
// std::bad_alloc only.
std::string render_json(const Log_record &record);

// One line for a terminal, without a line end. Control characters are written as \xNN, so that no
// quoted text can steer the terminal or start a line. Throws std::bad_alloc only.
std::string render_line(const Log_record &record);

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_LOG_RECORD_H
