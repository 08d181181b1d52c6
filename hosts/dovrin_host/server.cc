#include "dovrin_host/server.h"

#include <openssl/crypto.h>
#include <openssl/ui.h>

#include <filesystem>
#include <system_error>

#include "dovrin_host/loader.h"
#include "dovrin_host/row_context.h"
#include "dovrin_host/services.h"

namespace dovrin_host {
namespace {

// The path without links and dots, so that one file has one path.
std::string canonical_path(const std::string &path) {
  std::error_code error;
  const std::filesystem::path canonical = std::filesystem::weakly_canonical(path, error);
  return error ? path : canonical.string();
}

Status not_installed(std::string_view name) {
  return Status::failure("The component '" + std::string{name} + "' is not installed.");
}

Status in_use(std::string_view name, std::size_t count, const char *by) {
  return Status::failure("The component '" + std::string{name} +
                         "' cannot be uninstalled: " + std::to_string(count) + ' ' + by +
                         (count == 1 ? " uses" : "s use") + " it.");
}

// Scope guard: runs `undo` unless succeeded() was called.
template <typename Undo>
class Undo_unless_succeeded {
 public:
  explicit Undo_unless_succeeded(Undo undo) : undo_{std::move(undo)} {}
  Undo_unless_succeeded(const Undo_unless_succeeded &) = delete;
  Undo_unless_succeeded &operator=(const Undo_unless_succeeded &) = delete;
  ~Undo_unless_succeeded() {
    if (!succeeded_) {
      undo_();
    }
  }

  void succeeded() { succeeded_ = true; }

 private:
  Undo undo_;
  bool succeeded_ = false;
};

// Calls an entry of a component. An exception of it becomes a failure.
template <typename Entry>
Status call_entry(const Loaded_component &component, Entry entry) try {
  const Owner_scope scope{&component};
  return entry();
} catch (...) {
  return Status::failure("The component '" + component.name() +
                         "' failed with an exception: " + current_exception_text() + ".");
}

}  // namespace

Component_lease &Component_lease::operator=(Component_lease &&other) noexcept {
  if (this != &other) {
    release();
    name_ = std::exchange(other.name_, {});
  }
  return *this;
}

void Component_lease::release() noexcept {
  if (!name_.empty()) {
    Server::instance().release_lease(name_);
    name_.clear();
  }
}

Server &Server::instance() {
  static Server *const server = new Server;
  return *server;
}

Server::Server() : state_{service_state()} {
  keep_this_library_loaded();
  // libcrypto's own exit handler would free what rows in other threads still use.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  if (UI_get_default_method() == UI_OpenSSL()) {
    UI_set_default_method(UI_null());
  }
  set_small_context_use(small_context_use_of_environment());
}

Server::~Server() = default;

Status Server::install(const std::string &path) {
  const std::lock_guard one_at_a_time{install_mutex_};
  Result<Installed_map::iterator> found = find_or_load(path);
  if (!found.ok()) {
    return found.status();
  }
  const std::lock_guard lock{components_mutex_};
  auto &[name, installed] = *found.value();
  if (installed.permanent) {
    return Status::failure("The component '" + name + "' is already installed.");
  }
  installed.permanent = true;
  return {};
}

Status Server::uninstall(std::string_view name) {
  const std::lock_guard one_at_a_time{install_mutex_};
  const auto installed = components_.find(name);
  if (installed == components_.end()) {
    return not_installed(name);
  }
  if (installed->second.leases > 0) {
    return in_use(name, installed->second.leases, "lease");
  }
  return stop(installed);
}

Result<Component_lease> Server::acquire(const std::string &path) {
  const std::lock_guard one_at_a_time{install_mutex_};
  Result<Installed_map::iterator> found = find_or_load(path);
  if (!found.ok()) {
    return found.status();
  }
  const std::lock_guard lock{components_mutex_};
  auto &[name, installed] = *found.value();
  Component_lease lease{name};
  ++installed.leases;
  return lease;
}

std::vector<Component_info> Server::components() const {
  const std::lock_guard lock{components_mutex_};
  std::vector<Component_info> infos;
  for (const auto &[name, installed] : components_) {
    const Loaded_component &component = *installed.component;
    infos.push_back({name, component.path(), installed.leases,
                     state_.functions.open_instances(&component), installed.permanent});
  }
  return infos;
}

Result<std::unique_ptr<Function_instance>> Server::open_function(
    std::string_view name, std::span<const Item_result> types) {
  Function_pin function = state_.functions.pin(name);
  if (!function) {
    return Status::failure("The function '" + std::string{name} + "' is not installed.");
  }
  return Function_instance::open(std::move(function), types);
}

void Server::release_lease(std::string_view name) noexcept try {
  const std::lock_guard one_at_a_time{install_mutex_};
  const auto installed = components_.find(name);
  if (installed == components_.end()) {
    return;
  }
  {
    const std::lock_guard lock{components_mutex_};
    --installed->second.leases;
  }
  if (installed->second.leases == 0 && !installed->second.permanent) {
    // A component that is in use stays installed, which is what its users need.
    static_cast<void>(stop(installed));
  }
} catch (...) {
  // Out of memory: the component stays installed.
  return;
}

Result<Server::Installed_map::iterator> Server::find_or_load(const std::string &path) {
  const std::string file = canonical_path(path);
  for (auto it = components_.begin(); it != components_.end(); ++it) {
    if (it->second.component->path() == file) {
      return it;
    }
  }
  auto opened = Loaded_component::open(file);
  if (!opened.ok()) {
    return opened.status();
  }
  std::unique_ptr<Loaded_component> component = std::move(opened).value();

  const auto namesake = components_.find(component->name());
  if (namesake != components_.end()) {
    const Loaded_component &other = *namesake->second.component;
    if (other.object() == component->object()) {
      return namesake;
    }
    return Status::failure("The component '" + component->name() + "' of '" + file +
                           "' is already installed from '" + other.path() + "'.");
  }

  // The map's node is made first: once the component runs, nothing here can fail for lack of
  // memory.
  Installed_map node;
  node.try_emplace(component->name());
  Undo_unless_succeeded unload_again{[&] { unload(std::move(component)); }};
  Status started = start(*component);
  if (!started.ok()) {
    return started;
  }
  unload_again.succeeded();
  node.begin()->second.component = std::move(component);
  const std::lock_guard lock{components_mutex_};
  return components_.insert(node.extract(node.begin())).position;
}

Status Server::start(Loaded_component &component) {
  Status connected = component.connect();
  if (!connected.ok()) {
    return connected;
  }
  Status initialised = call_entry(component, [&] { return component.init(); });
  if (initialised.ok()) {
    state_.functions.publish(&component);
    state_.variables.publish(&component);
  }
  return initialised;
}

Status Server::stop(Installed_map::iterator installed) {
  Loaded_component &component = *installed->second.component;
  if (const std::size_t open = state_.functions.unpublish_unless_open(&component); open > 0) {
    return in_use(component.name(), open, "open function instance");
  }
  Undo_unless_succeeded publish_again{[&] { state_.functions.publish(&component); }};
  Status stopped = call_entry(component, [&] { return component.deinit(); });
  if (!stopped.ok()) {
    return stopped;
  }
  publish_again.succeeded();
  std::unique_ptr<Loaded_component> leaving;
  {
    const std::lock_guard lock{components_mutex_};
    leaving = std::move(installed->second.component);
    components_.erase(installed);
  }
  unload(std::move(leaving));
  return {};
}

void Server::unload(std::unique_ptr<Loaded_component> component) {
  const Owner owner = component.get();
  state_.variables.unpublish(owner);
  // The destructors that run now may still unregister what is registered; the rest would lead
  // nowhere.
  component.reset();
  state_.functions.drop(owner);
  state_.variables.drop(owner);
}

}  // namespace dovrin_host
