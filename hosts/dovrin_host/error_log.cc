#include "dovrin_host/error_log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <new>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>

#include "dovrin/services.h"
#include "dovrin_host/user_text.h"

namespace dovrin_host {
namespace {

struct Conversion {
  enum Kind { none, percent, text, user_text, signed_number, unsigned_number };
  Kind kind = none;
  std::size_t precision = 0;  // of a text that a user chose
};

// Takes a conversion off the front of `format`; none, with nothing taken, if there is no known one.
Conversion take_conversion(std::string_view &format) {
  struct Known_conversion {
    std::string_view spelling;
    Conversion::Kind kind;
  };
  static constexpr std::array known{
      Known_conversion{"%%", Conversion::percent},
      Known_conversion{"%s", Conversion::text},
      Known_conversion{"%lld", Conversion::signed_number},
      Known_conversion{"%llu", Conversion::unsigned_number},
  };
  for (const auto &[spelling, kind] : known) {
    if (format.starts_with(spelling)) {
      format.remove_prefix(spelling.size());
      return {kind};
    }
  }
  if (!format.starts_with("%.")) {
    return {};
  }
  std::size_t precision = 0;
  const char *const end = format.data() + format.size();
  const auto [stop, error] = std::from_chars(format.data() + 2, end, precision);
  if (error != std::errc{} || !std::string_view{stop, end}.starts_with('s')) {
    return {};
  }
  format.remove_prefix(static_cast<std::size_t>(stop + 1 - format.data()));
  return {Conversion::user_text, precision};
}

}  // namespace
namespace {

const char *text_or_word(const char *text) { return text != nullptr ? text : "(null)"; }

}  // namespace

bool has_user_text(std::string_view format) noexcept {
  for (std::size_t next = format.find('%'); next != std::string_view::npos;
       next = format.find('%')) {
    format.remove_prefix(next);
    const Conversion conversion = take_conversion(format);
    if (conversion.kind == Conversion::user_text) {
      return true;
    }
    if (conversion.kind == Conversion::none) {
      format.remove_prefix(1);
    }
  }
  return false;
}

std::string format_message(const char *format, va_list arguments) {
  std::string_view rest = format;
  std::string message;
  while (!rest.empty()) {
    const std::size_t literal = std::min(rest.find('%'), rest.size());
    message += rest.substr(0, literal);
    rest.remove_prefix(literal);
    const Conversion conversion = take_conversion(rest);
    switch (conversion.kind) {
      case Conversion::none:
        return message;
      case Conversion::percent:
        message += '%';
        break;
      case Conversion::text:
        message += text_or_word(va_arg(arguments, const char *));
        break;
      case Conversion::user_text:
        message +=
            make_excerpt(text_or_word(va_arg(arguments, const char *)), conversion.precision);
        break;
      case Conversion::signed_number:
        message += std::to_string(va_arg(arguments, long long));
        break;
      case Conversion::unsigned_number:
        message += std::to_string(va_arg(arguments, unsigned long long));
        break;
    }
  }
  return message;
}

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

  return make_printable(raw);
}

namespace {

thread_local constinit Discarded_records *discarded_on_this_thread = nullptr;

}  // namespace

Discarded_records::Discarded_records() noexcept { discarded_on_this_thread = this; }

Discarded_records::~Discarded_records() { discarded_on_this_thread = nullptr; }

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
  if (discarded_on_this_thread != nullptr) {
    ++discarded_on_this_thread->count_;
    return;
  }
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
