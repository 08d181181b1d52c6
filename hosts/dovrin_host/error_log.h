// The error log: records, the catalogue of their texts, and the sinks that take them.

#ifndef DOVRIN_HOST_ERROR_LOG_H
#define DOVRIN_HOST_ERROR_LOG_H

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "dovrin_host/result.h"

namespace dovrin_host {

// One report. A text that the report did not give is empty, a number 0.
struct Log_record {
  std::chrono::system_clock::time_point time;
  int priority = 0;  // 1 error, 2 warning; priority_name gives the word
  int code = 0;
  std::string symbol;       // the code's name
  std::string component;    // the reporter's tag, for instance "component:NAME"
  std::string function;     // the reporting function
  std::string source_file;  // without folder or ending
  long long source_line = 0;
  std::string message;  // texts that a user chose are excerpts, escaped
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

// One line for a terminal, without a line end, escaped like make_printable: no quoted text can
// steer the terminal or start a line. Throws std::bad_alloc only.
std::string render_line(const Log_record &record);

// One error code. All texts have static storage and end in a NUL.
struct Catalogue_entry {
  int code;
  const char *symbol;  // the code's name, for programs

  // The conversions fix order and types of the arguments: %s, %llu and %lld, and %.32s for a text
  // that a user chose, which format_message() makes an excerpt of.
  const char *template_text;
  const char *hint;  // one sentence: what the user can do
};

// Returns the entry of `code`, or null if the catalogue has none. Any thread.
const Catalogue_entry *find_catalogue_entry(int code) noexcept;

// What the user can do about `code`, reported by the SQL function `function`; empty for a code that
// the catalogue does not have. Static storage. Any thread.
const char *find_hint(int code, std::string_view function) noexcept;

// True if the format has a text with a precision, which stands for a text that a user chose.
bool has_user_text(std::string_view format) noexcept;

// The message of such a format: an excerpt, as make_excerpt() gives it, takes the place of each
// text with a precision, so that a private key in the wrong argument reaches no sink. The other
// conversions may be %s, %llu, %lld and %%; the message ends at anything else. `arguments` is used
// up. Throws std::bad_alloc only.
std::string format_message(const char *format, va_list arguments);

// Where records go. A sink may be written to from many threads at once, and must not call the error
// log or the server from `write`.
class Log_sink {
 public:
  Log_sink() = default;
  Log_sink(const Log_sink &) = delete;
  Log_sink &operator=(const Log_sink &) = delete;
  virtual ~Log_sink() = default;

  // Takes one record. A failure (or an exception, which the error log catches) concerns this record
  // in this sink only.
  virtual Status write(const Log_record &record) = 0;
};

// Any thread may call anything at any time.
class Error_log {
 public:
  // From now on `sink`, which must not be null, gets every record. Adding a sink twice has no
  // effect.
  void add_sink(std::shared_ptr<Log_sink> sink);

  // No record that is submitted after this call reaches `sink`; one that another thread is writing
  // at this moment still may, and keeps the sink alive until then.
  void remove_sink(const Log_sink *sink) noexcept;

  // Hands `record` to every sink on the calling thread; no lock of the error log is held meanwhile.
  // When a sink begins to fail, the other sinks get one record of that. Never throws: a sink
  // that runs out of memory misses this record.
  void submit(const Log_record &record) noexcept;

 private:
  struct Attached_sink;
  using Sinks = std::vector<std::shared_ptr<Attached_sink>>;

  std::shared_ptr<const Sinks> sinks() const noexcept;
  static void write_to(Attached_sink &attached, const Sinks &all,
                       const Log_record &record) noexcept;
  static void report_failure(const Sinks &sinks, const Attached_sink &failed, const Status &status);

  mutable std::mutex mutex_;  // guards the pointer; the list behind it never changes
  std::shared_ptr<const Sinks> sinks_ = std::make_shared<const Sinks>();
};

// While one exists, the records that the calling thread submits, to any error log, are counted and
// discarded. One per thread.
class Discarded_records {
 public:
  Discarded_records() noexcept;
  Discarded_records(const Discarded_records &) = delete;
  Discarded_records &operator=(const Discarded_records &) = delete;
  ~Discarded_records();

  std::size_t count() const noexcept { return count_; }

 private:
  friend class Error_log;

  std::size_t count_ = 0;
};

// Turns a record into one line without a line end: render_json, or render_line for people.
using Record_renderer = std::string (*)(const Log_record &);

// Writes each record as one line, with one system call where the system takes it whole. A record
// that cannot be written at once, because a pipe or a disk is full, is lost; the ones before and
// after it are whole lines. A write neither waits nor raises a signal.
class Line_sink : public Log_sink {
 public:
  // Appends to the file, which is created if it is missing. A regular file is made accessible to
  // its owner only. Fails if the file cannot be opened or other users keep access to it.
  static Result<std::shared_ptr<Line_sink>> to_file(const std::string &path,
                                                    Record_renderer render);

  // Writes to an open descriptor (2 for stderr), which stays the caller's and outlives the sink.
  static std::shared_ptr<Line_sink> to_descriptor(int descriptor, Record_renderer render);

  ~Line_sink() override;

  // Fails with a sentence that names the file and the system's reason.
  Status write(const Log_record &record) override;

 private:
  Line_sink(int descriptor, bool owned, std::string name, Record_renderer render);

  const int descriptor_;
  const bool owned_;
  const std::string name_;
  const Record_renderer render_;
  mutable std::mutex mutex_;  // guards what follows, and keeps lines apart
  bool inside_line_ = false;  // the last line was truncated
};

// A record and its place in the order of arrival, counted from 1.
struct Numbered_record {
  std::uint64_t sequence = 0;
  Log_record record;

  bool operator==(const Numbered_record &) const = default;
};

// Keeps the last records in memory.
class Ring_sink : public Log_sink {
 public:
  // `capacity` records at most; at least 1.
  explicit Ring_sink(std::size_t capacity);

  Status write(const Log_record &record) override;

  // A copy of what it holds, newest last, without gaps in the sequence.
  std::vector<Numbered_record> snapshot() const;

 private:
  const std::size_t capacity_;
  mutable std::mutex mutex_;  // guards what follows
  std::uint64_t last_sequence_ = 0;
  std::deque<Numbered_record> records_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_ERROR_LOG_H
