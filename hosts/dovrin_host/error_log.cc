#include "dovrin_host/error_log.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

#include "dovrin/services.h"
#include "dovrin_host/exception_text.h"

namespace dovrin_host {

struct Error_log::Attached_sink {
  std::shared_ptr<Log_sink> sink;
  std::atomic<bool> failing{false};
  std::atomic<bool> removed{false};
};

namespace {

Status write_guarded(Log_sink &sink, const Log_record &record) {
  try {
    return sink.write(record);
  } catch (...) {
    return Status::failure(current_exception_text());
  }
}

Log_record sink_failure_record(const Status &status) {
  Log_record record;
  record.time = std::chrono::system_clock::now();
  record.priority = DOVRIN_PRIORITY_ERROR;
  record.symbol = "LOG_SINK_FAILED";
  record.component = "server";
  record.message = "A destination of the error log fails: " + status.message();
  record.hint = "Make room or repair the destination; it is tried again with the next record.";
  return record;
}

}  // namespace

void Error_log::add_sink(std::shared_ptr<Log_sink> sink) {
  auto attached = std::make_shared<Attached_sink>();
  attached->sink = std::move(sink);

  const std::lock_guard lock{mutex_};
  const auto same = [&](const auto &other) {
    return other->sink == attached->sink && !other->removed;
  };
  if (std::ranges::any_of(*sinks_, same)) {
    return;
  }
  auto extended = std::make_shared<Sinks>(*sinks_);
  extended->push_back(std::move(attached));
  sinks_ = std::move(extended);
}

void Error_log::remove_sink(const Log_sink *sink) noexcept {
  const std::lock_guard lock{mutex_};
  for (const auto &attached : *sinks_) {
    if (attached->sink.get() == sink) {
      attached->removed = true;
    }
  }
  try {
    auto remaining = std::make_shared<Sinks>(*sinks_);
    std::erase_if(*remaining, [](const auto &attached) { return attached->removed.load(); });
    sinks_ = std::move(remaining);
  } catch (const std::bad_alloc &) {
    // The mark alone keeps records away; a later removal takes the sink out of the list.
    return;
  }
}

void Error_log::submit(const Log_record &record) noexcept {
  const std::shared_ptr<const Sinks> current = sinks();
  for (const auto &attached : *current) {
    if (!attached->removed) {
      write_to(*attached, *current, record);
    }
  }
}

void Error_log::write_to(Attached_sink &attached, const Sinks &all,
                         const Log_record &record) noexcept {
  try {
    const Status status = write_guarded(*attached.sink, record);
    const bool failed_before = attached.failing.exchange(!status.ok());
    if (!status.ok() && !failed_before) {
      report_failure(all, attached, status);
    }
  } catch (const std::bad_alloc &) {
    // There is no memory to describe the failure with.
    attached.failing = true;
  }
}

std::shared_ptr<const Error_log::Sinks> Error_log::sinks() const noexcept {
  const std::lock_guard lock{mutex_};
  return sinks_;
}

void Error_log::report_failure(const Sinks &sinks, const Attached_sink &failed,
                               const Status &status) {
  const Log_record record = sink_failure_record(status);
  for (const auto &attached : sinks) {
    if (attached.get() != &failed) {
      // A second broken sink has nowhere better to report to.
      static_cast<void>(write_guarded(*attached->sink, record));
    }
  }
}

}  // namespace dovrin_host
