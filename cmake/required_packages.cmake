# Finds the packages that the chosen options need, and names the Debian package that is missing.

# require_debian_package(found option package): stops unless `found` is true.
function(require_debian_package found option package)
  if(NOT ${found})
    message(FATAL_ERROR "${option} needs the Debian package ${package}: install it with "
                        "'apt-get install ${package}', or switch ${option} off.")
  endif()
endfunction()

find_package(OpenSSL 3.0 QUIET)
require_debian_package(OPENSSL_FOUND "component_halvex_encryption" libssl-dev)

if(HALVEX_BUILD_SQLITE_HOST OR HALVEX_BUILD_POSTGRESQL_HOST OR HALVEX_BUILD_FUZZERS
   OR HALVEX_BUILD_BENCHMARKS OR HALVEX_BUILD_TESTS)
  find_package(nlohmann_json 3.11 QUIET)
  require_debian_package(nlohmann_json_FOUND "What loads the component (HALVEX_BUILD_*)" nlohmann-json3-dev)
endif()

if(HALVEX_BUILD_SQLITE_HOST)
  find_package(SQLite3 3.38 QUIET)
  require_debian_package(SQLite3_FOUND HALVEX_BUILD_SQLITE_HOST libsqlite3-dev)
endif()

if(HALVEX_BUILD_POSTGRESQL_HOST)
  # Supported, newest first; tools/install-packages has the same list.
  set(postgresql_versions 17 16 15)
  set(postgresql_folders)
  foreach(version IN LISTS postgresql_versions)
    if(EXISTS /usr/include/postgresql/${version}/server/postgres.h)
      list(APPEND postgresql_folders /usr/lib/postgresql/${version}/bin)
    endif()
  endforeach()
  find_program(HALVEX_PG_CONFIG pg_config HINTS ${postgresql_folders}
               DOC "pg_config of the PostgreSQL server that the extension is built for")
  set(postgresql_headers_found FALSE)
  if(HALVEX_PG_CONFIG)
    execute_process(COMMAND ${HALVEX_PG_CONFIG} --includedir-server
                    OUTPUT_VARIABLE HALVEX_PG_INCLUDE_DIR OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(EXISTS ${HALVEX_PG_INCLUDE_DIR}/postgres.h)
      set(postgresql_headers_found TRUE)
    endif()
  endif()
  require_debian_package(postgresql_headers_found HALVEX_BUILD_POSTGRESQL_HOST postgresql-server-dev-all)
  execute_process(COMMAND ${HALVEX_PG_CONFIG} --version OUTPUT_VARIABLE version)
  string(REGEX MATCH "[0-9]+" HALVEX_PG_VERSION "${version}")
  if(NOT HALVEX_PG_VERSION IN_LIST postgresql_versions)
    message(FATAL_ERROR "${HALVEX_PG_CONFIG} is that of PostgreSQL ${HALVEX_PG_VERSION}, which is not supported; the "
                        "extension is built for one of: ${postgresql_versions}. Set HALVEX_PG_CONFIG to the "
                        "pg_config of a supported server, or switch HALVEX_BUILD_POSTGRESQL_HOST off.")
  endif()
endif()

if(HALVEX_BUILD_TESTS)
  find_package(GTest QUIET)
  require_debian_package(GTest_FOUND HALVEX_BUILD_TESTS libgtest-dev)
endif()
if(HALVEX_BUILD_BENCHMARKS)
  find_package(benchmark QUIET)
  require_debian_package(benchmark_FOUND HALVEX_BUILD_BENCHMARKS libbenchmark-dev)
endif()
if(HALVEX_BUILD_FUZZERS AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "HALVEX_BUILD_FUZZERS needs clang: configure with the preset 'fuzz'.")
endif()
