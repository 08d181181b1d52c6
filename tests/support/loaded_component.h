// The shipped shared object, loaded as a server loads it. Uses no operator new.

#ifndef HALVEX_TESTS_SUPPORT_LOADED_COMPONENT_H
#define HALVEX_TESTS_SUPPORT_LOADED_COMPONENT_H

#include "dovrin/component.h"

namespace halvex_test {

// The path of the shared object that this build made.
const char *component_path();

// Whether the shared object is mapped into this process.
[[nodiscard]] bool component_is_mapped();

// Loads the shared object, gets its descriptor and fills its slots with the fake server's tables.
// Aborts with the reason if loading fails. One at a time.
class Loaded_component {
 public:
  Loaded_component();
  // Runs deinit if it is due, then unloads.
  ~Loaded_component();
  Loaded_component(const Loaded_component &) = delete;
  Loaded_component &operator=(const Loaded_component &) = delete;

  [[nodiscard]] const Dovrin_component &descriptor() const { return *descriptor_; }
  // The result of another call of the exported entry.
  [[nodiscard]] const Dovrin_component *list_again() const { return list_components_(); }

  // The descriptor's own init and deinit. A successful init makes deinit due.
  int init();
  int deinit();
  // Unloads without deinit; the object must not be used afterwards. Calling it again does nothing.
  void unload();

 private:
  void *handle_ = nullptr;
  Dovrin_list_components list_components_ = nullptr;
  const Dovrin_component *descriptor_ = nullptr;
  bool deinit_is_due_ = false;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_LOADED_COMPONENT_H
