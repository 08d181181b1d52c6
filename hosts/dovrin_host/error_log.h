// The error log: hands every record to every sink.

#ifndef DOVRIN_HOST_ERROR_LOG_H
#define DOVRIN_HOST_ERROR_LOG_H

#include <memory>
#include <mutex>
#include <vector>

#include "dovrin_host/log_record.h"
#include "dovrin_host/result.h"

namespace dovrin_host {

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
  // From now on `sink` gets every record. Adding a sink twice has no effect.
  void add_sink(std::shared_ptr<Log_sink> sink);

  // No record that is submitted after this call reaches `sink`; one that another thread is writing
  // at this moment still may, and keeps the sink alive until then.
  void remove_sink(const Log_sink *sink) noexcept;

  // Hands `record` to every sink on the calling thread; no lock of the error log is held meanwhile.
  // When a sink begins to fail, the other sinks get one record that says so. Never throws: a sink
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

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_ERROR_LOG_H
