// Opens a host, lets it install a component, closes the host, and ends while the component is still
// installed. Arguments: the host's file, the component's file.

#include <dlfcn.h>

#include <cstdio>

int main(int count, char **arguments) {
  if (count != 3) {
    return 2;
  }
  void *const host = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  if (host == nullptr) {
    static_cast<void>(std::fprintf(stderr, "%s\n", dlerror()));
    return 3;
  }
  const auto install = reinterpret_cast<int (*)(const char *)>(dlsym(host, "host_install"));
  if (install == nullptr || install(arguments[2]) != 0) {
    return 4;
  }
  return dlclose(host) == 0 ? 0 : 5;
}
