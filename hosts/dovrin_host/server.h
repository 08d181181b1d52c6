// The server: start here. One object per process that holds the error log, the functions, the
// system variables and the installed components.
//
//   auto lease = Server::instance().acquire("/usr/lib/halvex/component_halvex_encryption.so");
//   auto digest = Server::instance().open_function("create_digest", types);
//   auto row = digest.value()->row(arguments);
//
// Everything may be called from many threads at once. Locks, in the order in which one thread may
// take them: the install lock (held while a component's init, deinit and unload run; no service
// takes it), the set lock of System_variables (held while a variable's callbacks run), then one of
// the locks around data, under which no foreign code runs. Log sinks are called without any lock of
// the error log; they must not call the server.
//
// Fork: a child of a process whose other threads use the server must not use it, because one of
// these locks may be held for ever. Exit: what is installed stays loaded until the process ends,
// its destructors still find the services, and other threads may go on computing rows.

#ifndef DOVRIN_HOST_SERVER_H
#define DOVRIN_HOST_SERVER_H

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin_host/error_log.h"
#include "dovrin_host/functions.h"
#include "dovrin_host/result.h"
#include "dovrin_host/services.h"
#include "dovrin_host/variables.h"

namespace dovrin_host {

class Loaded_component;

// Keeps a component installed. Movable. When the last lease is released and nobody installed the
// component permanently, it is uninstalled, unless function instances are open: then it stays,
// until the next lease or uninstall ends.
class Component_lease {
 public:
  Component_lease() = default;
  Component_lease(Component_lease &&other) noexcept : name_{std::exchange(other.name_, {})} {}
  Component_lease &operator=(Component_lease &&other) noexcept;
  ~Component_lease() { release(); }

  // False for an empty or released lease.
  explicit operator bool() const { return !name_.empty(); }

  // The component's name, as `uninstall` takes it.
  const std::string &name() const { return name_; }

  // Releases the lease now.
  void release() noexcept;

 private:
  friend class Server;
  explicit Component_lease(std::string name) : name_{std::move(name)} {}

  std::string name_;
};

// An installed component, for display.
struct Component_info {
  std::string name;
  std::string path;
  std::size_t leases = 0;
  std::size_t open_instances = 0;
  bool installed_permanently = false;  // by install, not only by leases
};

class Server {
 public:
  // The process's server, made at the first call and never destroyed: a component's unload calls it
  // as late as the end of the process. Making it changes libcrypto for the whole process: where
  // its default user interface is OpenSSL's own, it becomes the null one, so that an encrypted PEM
  // text never makes anybody wait for a terminal; and unless libcrypto was used before, it frees
  // nothing as the process ends, when other threads may still compute rows.
  static Server &instance();

  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  // Installs the component in the shared object at `path` until `uninstall`. Fails if it is
  // installed permanently already, if another file's component has its name, or if it cannot be
  // loaded or refuses; then nothing of it is left.
  Status install(const std::string &path);

  // Uninstalls the component of that name (its descriptor's). Refused while it has leases or open
  // function instances, or if the component itself refuses; then it stays installed and can be
  // used.
  Status uninstall(std::string_view name);

  // Acquires a lease of the component at `path`, which is installed if it is not yet. Fails as
  // install does.
  Result<Component_lease> acquire(const std::string &path);

  // The installed components in the order of their names.
  std::vector<Component_info> components() const;

  // Opens an instance of an installed function for arguments of these types. Fails if there is no
  // such function, or with exactly the function's own message.
  Result<std::unique_ptr<Function_instance>> open_function(std::string_view name,
                                                           std::span<const Item_result> types);

  Error_log &error_log() { return state_.error_log; }
  Function_registry &functions() { return state_.functions; }
  System_variables &variables() { return state_.variables; }

 private:
  friend class Component_lease;

  struct Installed {
    std::unique_ptr<Loaded_component> component;
    std::size_t leases = 0;
    bool permanent = false;
  };
  using Installed_map = std::map<std::string, Installed, std::less<>>;

  Server();
  ~Server();

  void release_lease(std::string_view name) noexcept;

  // What follows is called under the install lock.
  Result<Installed_map::iterator> find_or_load(const std::string &path);
  Status start(Loaded_component &component);
  Status stop(Installed_map::iterator installed);
  void unload(std::unique_ptr<Loaded_component> component);

  Service_state &state_;

  std::mutex install_mutex_;             // serialises coming and going of components
  mutable std::mutex components_mutex_;  // guards the map; written under the install lock as well
  Installed_map components_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_SERVER_H
