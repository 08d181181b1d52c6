#include "postgresql/component_calls.h"

#include <dlfcn.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <iterator>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "dovrin_host/error_log.h"
#include "dovrin_host/server.h"

namespace halvex_postgresql {

struct Call_site {
  std::unique_ptr<dovrin_host::Function_instance> instance;
  std::vector<dovrin_host::Argument> arguments;
};

namespace {

using dovrin_host::Argument;
using dovrin_host::Log_record;
using dovrin_host::Result;
using dovrin_host::Server;
using dovrin_host::Status;

constexpr const char *component_file = "component_halvex_encryption.so";

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

// Null until the first use, so that asking makes nothing.
Process_state *state_in_use = nullptr;

std::array<char, 4096> failure{};

void set_failure(const char *text) noexcept {
  static_cast<void>(std::snprintf(failure.data(), failure.size(), "%s", text));
}

// Runs an operation that gives a Status; its failure, or its exception, becomes failure_text().
template <typename Operation>
bool succeeds(Operation operation) noexcept try {
  const Status status = operation();
  if (!status.ok()) {
    set_failure(status.message().c_str());
  }
  return status.ok();
} catch (const std::exception &error) {
  set_failure(error.what());
  return false;
} catch (...) {
  set_failure("unknown exception");
  return false;
}

std::string component_path() {
  if (const char *const chosen = std::getenv("HALVEX_COMPONENT"); chosen != nullptr && *chosen) {
    return chosen;
  }
  Dl_info library{};
  if (dladdr(&failure, &library) == 0 || library.dli_fname == nullptr) {
    return component_file;
  }
  const std::string path = library.dli_fname;
  return path.substr(0, path.rfind('/') + 1) + component_file;
}

Argument argument_of(const Value &value) {
  if (value.is_null) {
    return Argument::null(value.type);
  }
  switch (value.type) {
    case INT_RESULT:
      return Argument::integer(value.integer);
    case REAL_RESULT:
      return Argument::real(value.real);
    default:
      return Argument::string({value.bytes, value.length});
  }
}

Row_result run(Call_site &site) {
  using Kind = dovrin_host::Row_result::Kind;
  const dovrin_host::Row_result row = site.instance->row(site.arguments);
  if (row.kind == Kind::null) {
    return {.kind = Row_result::null};
  }
  if (row.kind == Kind::error) {
    set_failure(std::string{row.text}.c_str());
    return {.kind = Row_result::failed};
  }
  return {.kind = Row_result::value,
          .bytes = row.text.data(),
          .length = row.text.size(),
          .integer = row.integer};
}

}  // namespace

bool is_component_loaded() noexcept { return state_in_use != nullptr && state_in_use->lease; }

bool load_component() noexcept {
  return succeeds([] {
    state_in_use = &process_state();
    Result<dovrin_host::Component_lease> lease = Server::instance().acquire(component_path());
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
  return succeeds([=] { return Server::instance().variables().set(name, value); });
}

bool set_boolean_variable(const char *name, bool value) noexcept {
  return succeeds([=] { return Server::instance().variables().set(name, value); });
}

Call_site *open_call_site(const char *function, const Value *values, std::size_t count) noexcept {
  std::unique_ptr<Call_site> site;
  const bool opened = succeeds([&] {
    std::vector<Item_result> types;
    std::ranges::transform(std::span{values, count}, std::back_inserter(types), &Value::type);
    auto instance = Server::instance().open_function(function, types);
    if (!instance.ok()) {
      return instance.status();
    }
    site = std::make_unique<Call_site>();
    site->instance = std::move(instance).value();
    return Status{};
  });
  return opened ? site.release() : nullptr;
}

void close_call_site(Call_site *site) noexcept { delete site; }

Item_result result_type(const Call_site &site) noexcept { return site.instance->result_type(); }

Row_result run_row(Call_site &site, const Value *values, std::size_t count) noexcept try {
  site.arguments.clear();
  for (const Value &value : std::span{values, count}) {
    site.arguments.push_back(argument_of(value));
  }
  return run(site);
} catch (const std::bad_alloc &) {
  return {.kind = Row_result::out_of_memory};
} catch (const std::exception &error) {
  set_failure(error.what());
  return {.kind = Row_result::failed};
} catch (...) {
  set_failure("unknown exception");
  return {.kind = Row_result::failed};
}

const char *failure_text() noexcept { return failure.data(); }

const Log_record *oldest_record() noexcept {
  return state_in_use == nullptr || state_in_use->collector->records.empty()
             ? nullptr
             : &state_in_use->collector->records.front();
}

void remove_oldest_record() noexcept { state_in_use->collector->records.pop_front(); }

void wipe(void *bytes, std::size_t length) noexcept { OPENSSL_cleanse(bytes, length); }

}  // namespace halvex_postgresql
