#include "dovrin_host/server.h"

#include <openssl/ui.h>

#include <filesystem>
#include <system_error>

#include "dovrin_host/exception_text.h"
#include "dovrin_host/loader.h"
#include "dovrin_host/owner.h"

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

// Runs `undo` at the end of the scope, unless told that all went well.
template <typename Undo>
class Undo_unless_done {
 public:
  explicit Undo_unless_done(Undo undo) : undo_{std::move(undo)} {}
  Undo_unless_done(const Undo_unless_done &) = delete;
  Undo_unless_done &operator=(const Undo_unless_done &) = delete;
  ~Undo_unless_done() {
    if (!done_) {
      undo_();
    }
  }

  void done() { done_ = true; }

 private:
  Undo undo_;
  bool done_ = false;
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
    Server::instance().give_back(name_);
    name_.clear();
  }
}

Server &Server::instance() {
  static Server *const server = new Server;
  return *server;
}

Server::Server() {
  keep_this_library_loaded();
  UI_set_default_method(UI_null());
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
  if (installed.for_good) {
    return Status::failure("The component '" + name + "' is already installed.");
  }
  installed.for_good = true;
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
    infos.push_back({name, component.path(), component.metadata(), installed.leases,
                     functions_.open_instances(&component), installed.for_good});
  }
  return infos;
}

Result<std::unique_ptr<Function_instance>> Server::open_function(
    std::string_view name, std::span<const Item_result> types) {
  Function_use function = functions_.use(name);
  if (!function) {
    return Status::failure("The function '" + std::string{name} + "' is not installed.");
  }
  return Function_instance::open(std::move(function), types);
}

void Server::give_back(std::string_view name) noexcept try {
  const std::lock_guard one_at_a_time{install_mutex_};
  const auto installed = components_.find(name);
  if (installed == components_.end()) {
    return;
  }
  {
    const std::lock_guard lock{components_mutex_};
    --installed->second.leases;
  }
  if (installed->second.leases == 0 && !installed->second.for_good) {
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
  Undo_unless_done unload_again{[&] { unload(std::move(component)); }};
  Status started = start(*component);
  if (!started.ok()) {
    return started;
  }
  unload_again.done();
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
    functions_.show(&component);
    variables_.show(&component);
  }
  return initialised;
}

Status Server::stop(Installed_map::iterator installed) {
  Loaded_component &component = *installed->second.component;
  if (const std::size_t open = functions_.hide_unless_open(&component); open > 0) {
    return in_use(component.name(), open, "open function instance");
  }
  Undo_unless_done show_again{[&] { functions_.show(&component); }};
  Status stopped = call_entry(component, [&] { return component.deinit(); });
  if (!stopped.ok()) {
    return stopped;
  }
  show_again.done();
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
  variables_.hide(owner);
  // The destructors that run now may still withdraw what is registered; the rest would lead
  // nowhere.
  component.reset();
  functions_.drop(owner);
  variables_.drop(owner);
}

}  // namespace dovrin_host
