// Records and sinks for the tests of the error log.

#ifndef TESTS_DOVRIN_HOST_RECORDS_H
#define TESTS_DOVRIN_HOST_RECORDS_H

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "dovrin_host/error_log.h"
#include "dovrin_host/server.h"
#include "printers.h"

namespace dovrin_host {

// A record with every field set: 2026-01-02T03:04:05.000006Z.
inline Log_record sample_record(std::string message = "Something failed.") {
  Log_record record;
  record.time = std::chrono::system_clock::time_point{std::chrono::microseconds{1767323045000006}};
  record.priority = 1;
  record.code = 13927;
  record.symbol = "SYMBOL";
  record.component = "component:tests";
  record.function = "sign";
  record.source_file = "functions";
  record.source_line = 42;
  record.message = std::move(message);
  record.hint = "Try again.";
  return record;
}

// Listens to the server's error log while it lives.
class Listener {
 public:
  Listener() { Server::instance().error_log().add_sink(ring_); }
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;
  ~Listener() { Server::instance().error_log().remove_sink(ring_.get()); }

  // What came since the start, without times (which are checked to be recent).
  std::vector<Log_record> records() const {
    std::vector<Log_record> records;
    for (Numbered_record &numbered : ring_->snapshot()) {
      EXPECT_GE(numbered.record.time, started_);
      EXPECT_LE(numbered.record.time, std::chrono::system_clock::now());
      numbered.record.time = {};
      records.push_back(std::move(numbered.record));
    }
    return records;
  }

 private:
  const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
  const std::shared_ptr<Ring_sink> ring_ = std::make_shared<Ring_sink>(10000);
};

}  // namespace dovrin_host

#endif  // TESTS_DOVRIN_HOST_RECORDS_H
