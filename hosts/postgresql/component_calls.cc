#include "postgresql/component_calls.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <exception>
#include <iterator>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "dovrin_host/loader.h"
#include "dovrin_host/server.h"

namespace halvex_postgresql {
namespace {

using dovrin_host::Log_record;
using dovrin_host::Result;
using dovrin_host::Server;
using dovrin_host::Status;

// Keeps records until the component has returned: only then may they go to the server's log.
class Record_collector : public dovrin_host::Log_sink {
 public:
  Status write(const Log_record &record) override {
    records.push_back(record);
    return {};
  }

  std::deque<Log_record> records;
};

// What this process has of the component. Never destroyed: the component's unload at the end of the
// process still reports to the log.
struct Process_state {
  std::shared_ptr<Record_collector> collector = std::make_shared<Record_collector>();
  dovrin_host::Component_lease lease;
};

Process_state &process_state() {
  static Process_state *const state = [] {
    auto made = std::make_unique<Process_state>();
    Server::instance().error_log().add_sink(made->collector);
    return made.release();
  }();
  return *state;
}

// Null until the first use.
Process_state *state_in_use = nullptr;

std::array<char, 4096> failure{};
bool memory_failure = false;

void set_failure(const char *text) noexcept {
  static_cast<void>(std::snprintf(failure.data(), failure.size(), "%s", text));
}

// Runs an operation. After an exception the result is that of `on_exception`, which gets its text.
template <typename Operation, typename On_exception>
auto run_without_exceptions(Operation operation, On_exception on_exception) noexcept {
  memory_failure = false;
  try {
    return operation();
  } catch (const std::bad_alloc &) {
    memory_failure = true;
    return on_exception("out of memory");
  } catch (const std::exception &error) {
    return on_exception(error.what());
  } catch (...) {
    return on_exception("an exception of unknown type");
  }
}

// Runs an operation that returns a Status. False with failure_text() if it fails.
template <typename Operation>
bool run_operation(Operation operation) noexcept {
  return run_without_exceptions(
      [&operation] {
        const Status status = operation();
        if (!status.ok()) {
          set_failure(status.message().c_str());
        }
        return status.ok();
      },
      [](const char *text) {
        set_failure(text);
        return false;
      });
}

}  // namespace

bool is_component_loaded() noexcept { return state_in_use != nullptr && state_in_use->lease; }

bool load_component() noexcept {
  return run_operation([] {
    state_in_use = &process_state();
    Result<dovrin_host::Component_lease> lease =
        Server::instance().acquire(dovrin_host::find_component_file());
    if (!lease.ok()) {
      return lease.status();
    }
    state_in_use->lease = std::move(lease).value();
    return Status{};
  });
}

void unload_component() noexcept {
  if (is_component_loaded()) {
    state_in_use->lease.release();
  }
}

bool set_integer_variable(const char *name, long long value) noexcept {
  return run_operation([=] { return Server::instance().variables().set(name, value); });
}

bool set_boolean_variable(const char *name, bool value) noexcept {
  return run_operation([=] { return Server::instance().variables().set(name, value); });
}

Call_site *open_call_site(const char *function, std::span<const Argument> arguments) noexcept {
  std::unique_ptr<Call_site> site;
  const bool opened = run_operation([&] {
    std::vector<Item_result> types;
    std::ranges::transform(arguments, std::back_inserter(types), &Argument::type);
    auto instance = Server::instance().open_function(function, types);
    if (!instance.ok()) {
      return instance.status();
    }
    site = std::move(instance).value();
    return Status{};
  });
  return opened ? site.release() : nullptr;
}

void close_call_site(Call_site *site) noexcept { delete site; }

Row_result run_row(Call_site &site, std::span<const Argument> arguments) noexcept {
  return run_without_exceptions(
      [&] { return site.row(arguments); },
      [&site](const char *text) {
        static_cast<void>(std::snprintf(failure.data(), failure.size(),
                                        "The function %s failed: %s.", site.name().c_str(), text));
        return Row_result{.kind = Row_result::Kind::error, .text = failure.data()};
      });
}

std::span<const dovrin_host::Version> list_versions(const char *built_with,
                                                    const char *running) noexcept {
  static std::vector<dovrin_host::Version> versions;
  const bool listed = run_operation([=] {
    versions = dovrin_host::list_versions({"PostgreSQL", built_with, running});
    return Status{};
  });
  return listed ? std::span<const dovrin_host::Version>{versions}
                : std::span<const dovrin_host::Version>{};
}

const char *failure_text() noexcept { return failure.data(); }
bool was_out_of_memory() noexcept { return memory_failure; }

const Log_record *oldest_record() noexcept {
  return state_in_use == nullptr || state_in_use->collector->records.empty()
             ? nullptr
             : &state_in_use->collector->records.front();
}

void remove_oldest_record() noexcept { state_in_use->collector->records.pop_front(); }

void wipe(void *bytes, std::size_t length) noexcept { OPENSSL_cleanse(bytes, length); }

}  // namespace halvex_postgresql
