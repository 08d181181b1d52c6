#include "dovrin_host/error_log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <new>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "dovrin/services.h"

namespace dovrin_host {
namespace {

bool is_ascii_control(unsigned char byte) { return byte < 0x20 || byte == 0x7f; }

// U+0080 to U+009F, whose UTF-8 form a terminal obeys like an escape sequence.
bool is_encoded_control(unsigned char first, unsigned char second) {
  return first == 0xc2 && second >= 0x80 && second <= 0x9f;
}

void append_escaped(std::string &out, unsigned char byte) {
  static constexpr std::string_view digits = "0123456789abcdef";
  out += "\\x";
  out += digits[byte >> 4U];
  out += digits[byte & 0xfU];
}

void append_printable(std::string &out, std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
    if (is_encoded_control(byte, next)) {
      append_escaped(out, byte);
      append_escaped(out, next);
      ++i;
    } else if (is_ascii_control(byte)) {
      append_escaped(out, byte);
    } else {
      out += text[i];
    }
  }
}

}  // namespace

const char *priority_name(int priority) noexcept {
  switch (priority) {
    case DOVRIN_PRIORITY_ERROR:
      return "error";
    case DOVRIN_PRIORITY_WARNING:
      return "warning";
    default:
      return "note";
  }
}

std::string render_time(std::chrono::system_clock::time_point time) {
  using std::chrono::microseconds;
  using std::chrono::seconds;
  const auto whole = std::chrono::floor<seconds>(time);
  const auto fraction = std::chrono::duration_cast<microseconds>(time - whole).count();
  const std::time_t since_epoch = std::chrono::system_clock::to_time_t(whole);
  std::tm parts{};
  gmtime_r(&since_epoch, &parts);

  std::array<char, 64> date{};
  const std::size_t length = std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::string out{date.data(), length};
  const std::string digits = std::to_string(fraction);
  out += '.';
  out.append(6 - digits.size(), '0');
  out += digits;
  out += 'Z';
  return out;
}

std::string render_json(const Log_record &record) {
  const nlohmann::ordered_json json{
      {"time", render_time(record.time)},
      {"priority", priority_name(record.priority)},
      {"code", record.code},
      {"symbol", record.symbol},
      {"component", record.component},
      {"function", record.function},
      {"source_file", record.source_file},
      {"source_line", record.source_line},
      {"message", record.message},
      {"hint", record.hint},
  };
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string render_line(const Log_record &record) {
  std::string raw = render_time(record.time);
  raw += ' ';
  raw += priority_name(record.priority);
  raw += ' ' + std::to_string(record.code) + ' ' + record.symbol + ": " + record.message + " [" +
         record.function + ", " + record.source_file + ':' + std::to_string(record.source_line) +
         ']';
  if (!record.hint.empty()) {
    raw += " Hint: " + record.hint;
  }

  std::string out;
  out.reserve(raw.size());
  append_printable(out, raw);
  return out;
}

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
