// The versions that decide how a host behaves, as one table that every adapter shows.

#ifndef DOVRIN_HOST_VERSIONS_H
#define DOVRIN_HOST_VERSIONS_H

#include <string>
#include <vector>

namespace dovrin_host {

// A row of the table.
struct Version {
  std::string name;
  std::string value;
};

// The SQL engine: its name, the version of the headers that the adapter was compiled with, and that
// of the engine that runs it.
struct Engine_versions {
  std::string name;
  std::string built_with;
  std::string running;
};

// The versions of this process, always in this order:
//
//   version               the host's, which is the component's if both come from one build
//   component_file        the file of the installed component; of several with ", " in between
//   engine                name and version of the engine that runs
//   engine_built_with     the same of the headers that the adapter was compiled with
//   openssl               the version of the library that runs
//   openssl_built_with    the version of its headers
//   row_context           where this thread's rows with RSA keys run: "small" or "default"; behind
//                         it the environment variable in parentheses, if it decides instead of a
//                         measurement
//
// Any thread; throws std::bad_alloc only.
std::vector<Version> list_versions(const Engine_versions &engine);

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_VERSIONS_H
