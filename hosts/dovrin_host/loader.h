// Loads one component: opens the shared object, connects it with the services, starts and stops it.

#ifndef DOVRIN_HOST_LOADER_H
#define DOVRIN_HOST_LOADER_H

#include <memory>
#include <string>
#include <vector>

#include "dovrin/component.h"
#include "dovrin_host/result.h"

namespace dovrin_host {

// Closes a shared object.
struct Close_object {
  void operator()(void *object) const noexcept;
};
using Object_ptr = std::unique_ptr<void, Close_object>;

// An opened component. The steps come in this order: open, connect, init, deinit, destruction. One
// thread at a time. Exceptions of the component's entries pass.
class Loaded_component {
 public:
  // Opens the shared object and asks it for its descriptor. A missing file, a missing symbol or a
  // descriptor without name or entries is a failure that names it.
  static Result<std::unique_ptr<Loaded_component>> open(const std::string &path);

  Loaded_component(const Loaded_component &) = delete;
  Loaded_component &operator=(const Loaded_component &) = delete;

  // Releases the services, then closes the object. The slots stay filled: destructors that run
  // while the object is unloaded may still unregister what is registered.
  ~Loaded_component();

  // Fills the slots of the required services. Fails, with nothing filled, at a service that does
  // not exist, or if another server in this process has the component.
  Status connect();

  // Calls init or deinit; fails if it refuses.
  Status init();
  Status deinit();

  const std::string &path() const { return path_; }

  // The descriptor's name, copied.
  const std::string &name() const { return name_; }

  // The same for two openings of one shared object.
  const void *object() const { return object_.get(); }

 private:
  Loaded_component(std::string path, Object_ptr object, const Dovrin_component &descriptor);

  void release_services() noexcept;

  const std::string path_;
  const Object_ptr object_;
  const Dovrin_component &descriptor_;  // inside the object
  const std::string name_;
  std::vector<void *> acquired_;
};

// Where an adapter finds the component: the file that the environment variable HALVEX_COMPONENT
// names, else component_halvex_encryption.so in the folder of the adapter, symbolic links resolved.
// In a program with more rights than its caller the variable does not count: the caller must not
// choose code that runs with them. Throws std::bad_alloc only.
std::string find_component_file();

// Keeps the code and data of this library in the process until it ends, even if the shared object
// that they are part of is closed: a component that is unloaded late still calls the service
// tables.
void keep_this_library_loaded() noexcept;

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_LOADER_H
