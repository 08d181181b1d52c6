// Sinks that need no engine: lines of text in a file or on a terminal, and a ring in memory.

#ifndef DOVRIN_HOST_LOG_SINKS_H
#define DOVRIN_HOST_LOG_SINKS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dovrin_host/error_log.h"

namespace dovrin_host {

// Turns a record into one line without a line end: render_json, or render_line for people.
using Record_renderer = std::string (*)(const Log_record &);

// Writes each record as one line, with one system call where the system takes it whole. A record
// that could not be written is lost and counted; the ones before and after it are whole lines.
class Line_sink : public Log_sink {
 public:
  // Appends to the file, which is created readable for its owner only. Fails if it cannot be
  // opened.
  static Result<std::shared_ptr<Line_sink>> to_file(const std::string &path,
                                                    Record_renderer render);

  // Writes to an open descriptor (2 for stderr), which stays the caller's and outlives the sink.
  static std::shared_ptr<Line_sink> to_descriptor(int descriptor, Record_renderer render);

  ~Line_sink() override;

  // Fails with a sentence that names the file and the system's reason.
  Status write(const Log_record &record) override;

  // The outcome of the last write.
  Status status() const;

  // How many records were lost so far.
  std::uint64_t lost_records() const;

 private:
  Line_sink(int descriptor, bool owned, std::string name, Record_renderer render);

  const int descriptor_;
  const bool owned_;
  const std::string name_;
  const Record_renderer render_;
  mutable std::mutex mutex_;  // guards what follows, and keeps lines apart
  bool inside_line_ = false;  // the last line was cut
  Status status_;
  std::uint64_t lost_records_ = 0;
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

  // The sequence number of the newest record that ever came; 0 if none did.
  std::uint64_t last_sequence() const;

  // Forgets the records; the sequence goes on.
  void clear();

 private:
  const std::size_t capacity_;
  mutable std::mutex mutex_;  // guards what follows
  std::uint64_t last_sequence_ = 0;
  std::deque<Numbered_record> records_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_LOG_SINKS_H
