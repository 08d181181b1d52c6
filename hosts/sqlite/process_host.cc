#include "sqlite/process_host.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin_host/server.h"

namespace halvex_sqlite {

namespace {

using dovrin_host::Component_lease;
using dovrin_host::Error_log;
using dovrin_host::Line_sink;
using dovrin_host::Log_sink;
using dovrin_host::Result;
using dovrin_host::Ring_sink;
using dovrin_host::Server;
using dovrin_host::Status;

constexpr std::size_t remembered_records = 1000;

// Empty if it is not set.
std::string environment(const char *name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
  const char *const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string component_path() {
  std::string named = environment("HALVEX_COMPONENT");
  if (!named.empty()) {
    return named;
  }
  Dl_info self{};
  dladdr(reinterpret_cast<const void *>(&start_process_host), &self);
  const std::filesystem::path extension = self.dli_fname != nullptr ? self.dli_fname : "";
  return extension.parent_path() / "component_halvex_encryption.so";
}

bool shows_records_on_stderr() {
  const std::string wish = environment("HALVEX_LOG_STDERR");
  return wish.empty() ? isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0 : wish != "0";
}

// What a component that refused to start has reported; nobody can query this log any more.
std::string last_message(const Ring_sink &records) {
  const auto reported = records.snapshot();
  return reported.empty() ? std::string{} : " " + reported.back().record.message;
}

// The sinks of one start, taken away again if the start fails.
class Attached_sinks {
 public:
  explicit Attached_sinks(Error_log &log) : log_{log} {}
  Attached_sinks(const Attached_sinks &) = delete;
  Attached_sinks &operator=(const Attached_sinks &) = delete;
  ~Attached_sinks() {
    for (const auto &sink : sinks_) {
      log_.remove_sink(sink.get());
    }
  }

  void add(std::shared_ptr<Log_sink> sink) {
    sinks_.push_back(sink);
    log_.add_sink(std::move(sink));
  }

  void keep() { sinks_.clear(); }

 private:
  Error_log &log_;
  std::vector<std::shared_ptr<Log_sink>> sinks_;
};

// What lives until the process ends.
struct Process_host {
  Component_lease component;
  std::shared_ptr<Ring_sink> records;
};

Result<Process_host> start(const std::string &path) {
  Server &server = Server::instance();
  Attached_sinks sinks{server.error_log()};

  auto records = std::make_shared<Ring_sink>(remembered_records);
  sinks.add(records);
  if (shows_records_on_stderr()) {
    sinks.add(Line_sink::to_descriptor(STDERR_FILENO, dovrin_host::render_line));
  }
  const std::string log_file = environment("HALVEX_LOG_FILE");
  if (!log_file.empty()) {
    auto sink = Line_sink::to_file(log_file, dovrin_host::render_json);
    if (!sink.ok()) {
      return sink.status();
    }
    sinks.add(std::move(sink).value());
  }

  auto component = server.acquire(path);
  if (!component.ok()) {
    return Status::failure(component.message() + last_message(*records));
  }
  sinks.keep();
  return Process_host{std::move(component).value(), std::move(records)};
}

}  // namespace

Result<std::shared_ptr<const Ring_sink>> start_process_host() {
  static std::mutex mutex;
  // Never destroyed: connections may still be open when the process ends.
  static const Process_host *host = nullptr;

  const std::lock_guard lock{mutex};
  const std::string path = component_path();
  if (host != nullptr) {
    const auto same = Server::instance().acquire(path);
    return same.ok() ? Result<std::shared_ptr<const Ring_sink>>{host->records} : same.status();
  }
  auto started = start(path);
  if (!started.ok()) {
    return started.status();
  }
  host = new Process_host{std::move(started).value()};
  return std::shared_ptr<const Ring_sink>{host->records};
}

}  // namespace halvex_sqlite
