// A shared object that carries a server, as an adapter does.

#include <cstdio>
#include <string>

#include "dovrin_host/server.h"

extern "C" __attribute__((visibility("default"))) int host_install(const char *path);

// Installs a component permanently. 0 for success.
int host_install(const char *path) {
  const dovrin_host::Status status = dovrin_host::Server::instance().install(path);
  if (!status.ok()) {
    static_cast<void>(std::fprintf(stderr, "%s\n", status.message().c_str()));
  }
  return status.ok() ? 0 : 1;
}
