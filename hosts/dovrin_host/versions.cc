#include "dovrin_host/versions.h"

#include <openssl/crypto.h>
#include <openssl/opensslv.h>

#include "dovrin_host/row_context.h"
#include "dovrin_host/server.h"

namespace dovrin_host {

namespace {

std::string component_files() {
  std::string files;
  for (const Component_info &component : Server::instance().components()) {
    files += (files.empty() ? "" : ", ") + component.path;
  }
  return files;
}

std::string row_context() {
  const Small_context_scope scope;
  std::string context = scope ? "small" : "default";
  switch (small_context_use_of_environment()) {
    case Small_context_use::always:
      return context + " (HALVEX_ROW_CONTEXT=on)";
    case Small_context_use::never:
      return context + " (HALVEX_ROW_CONTEXT=off)";
    default:
      return context;
  }
}

}  // namespace

std::vector<Version> list_versions(const Engine_versions &engine) {
  return {
      {"version", HALVEX_VERSION},
      {"component_file", component_files()},
      {"engine", engine.name + " " + engine.running},
      {"engine_built_with", engine.name + " " + engine.built_with},
      {"openssl", OpenSSL_version(OPENSSL_VERSION)},
      {"openssl_built_with", OPENSSL_VERSION_TEXT},
      {"row_context", row_context()},
  };
}

}  // namespace dovrin_host
