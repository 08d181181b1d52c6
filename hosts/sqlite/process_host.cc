#include "sqlite/process_host.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "dovrin_host/loader.h"
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

// Exported by every copy of this extension.
constexpr const char *entry_name = "sqlite3_halvexsqlite_init";

struct Close_handle {
  void operator()(void *handle) const { dlclose(handle); }
};
using Object_handle = std::unique_ptr<void, Close_handle>;

std::vector<std::string> loaded_objects() {
  std::vector<std::string> names;
  dl_iterate_phdr(
      [](dl_phdr_info *object, std::size_t /*size*/, void *out) {
        static_cast<std::vector<std::string> *>(out)->emplace_back(object->dlpi_name);
        return 0;
      },
      &names);
  return names;
}

// The object that holds the address; all null if no object does.
Dl_info object_of(const void *address) {
  Dl_info object{};
  return dladdr(address, &object) != 0 ? object : Dl_info{};
}

Dl_info own_object() { return object_of(reinterpret_cast<const void *>(&start_process_host)); }

// Fails if the process has loaded another copy of this extension, which has a server, a component
// and settings of its own: which of them a connection talks to would depend on the order of
// loading. Throws std::bad_alloc only.
Status check_only_copy() {
  for (const std::string &name : loaded_objects()) {
    const Object_handle object{name.empty() ? nullptr
                                            : dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD)};
    const void *const entry = object ? dlsym(object.get(), entry_name) : nullptr;
    if (entry != nullptr && object_of(entry).dli_fbase != own_object().dli_fbase) {
      return Status::failure("Another copy of this extension is loaded already, from '" + name +
                             "'. One process can use one copy only.");
    }
  }
  return {};
}

// Empty if it is not set, and in a program with more rights than its caller: the caller must
// choose neither code that runs nor files that are written with these rights.
std::string environment(const char *name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
  const char *const value = secure_getenv(name);
  return value != nullptr ? value : "";
}

bool shows_records_on_stderr() {
  const std::string wish = environment("HALVEX_LOG_STDERR");
  return wish.empty() ? isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0 : wish != "0";
}

// The last record of a component that failed to start: without a table, no query reads this log.
std::string last_message(const Ring_sink &records) {
  const auto reported = records.snapshot();
  return reported.empty() ? std::string{} : " " + reported.back().record.message;
}

// The sinks of one start, removed again unless keep() is called.
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

Result<Process_host> start() {
  const Status only_copy = check_only_copy();
  if (!only_copy.ok()) {
    return only_copy;
  }
  const std::string path = dovrin_host::find_component_file();
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
  if (host == nullptr) {
    auto started = start();
    if (!started.ok()) {
      return started.status();
    }
    host = new Process_host{std::move(started).value()};
  }
  return std::shared_ptr<const Ring_sink>{host->records};
}

}  // namespace halvex_sqlite
