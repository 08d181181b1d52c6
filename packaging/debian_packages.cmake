# The Debian packages: `cpack` in the build folder makes one of each component that this build has.
# tools/build-packages calls it with what makes the packages reproducible.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME component-halvex-encryption)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Every package has a description of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(HALVEX_PACKAGE_MAINTAINER "The Halvex encryption developers <packages@halvex-encryption.invalid>" CACHE STRING
    "Name and address that the Debian packages give their reader")
set(CPACK_PACKAGE_CONTACT ${HALVEX_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_THREADS 1)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The scripts of single folders, because that of the whole build would overwrite its list of installed files.
set(CPACK_INSTALL_CMAKE_PROJECTS)
set(CPACK_COMPONENTS_ALL)

# install_examples(component package pattern...): puts the scripts that match into the package's documents.
function(install_examples component package)
  file(GLOB examples CONFIGURE_DEPENDS ${ARGN})
  # It needs several servers, which only a checkout starts.
  list(FILTER examples EXCLUDE REGEX /shards.sql$)
  install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}/examples
          COMPONENT debian_${component} EXCLUDE_FROM_ALL)
endfunction()

# add_debian_package(component package section folder summary description page engine synopsis): makes a package of
# what `folder` installs as `component`, and its documents. The manual page `page`, none if that is empty, states how
# the functions come into `engine`.
function(add_debian_package component package section folder summary description page engine synopsis)
  string(TOUPPER ${component} COMPONENT)
  set(group ${component}_package)
  string(TOUPPER ${group} GROUP)

  install(CODE "set(package ${package})\nset(version ${PROJECT_VERSION})
set(maintainer \"${HALVEX_PACKAGE_MAINTAINER}\")\nset(source_folder \"${CMAKE_SOURCE_DIR}\")
set(page \"${page}\")\nset(engine \"${engine}\")\nset(synopsis \"${synopsis}\")"
          COMPONENT debian_${component} EXCLUDE_FROM_ALL)
  install(SCRIPT install_package_documents.cmake COMPONENT debian_${component} EXCLUDE_FROM_ALL)

  foreach(part IN ITEMS ${component} debian_${component})
    string(TOUPPER ${part} PART)
    set(CPACK_COMPONENT_${PART}_GROUP ${group} PARENT_SCOPE)
  endforeach()
  set(CPACK_DEBIAN_${GROUP}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${GROUP}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${GROUP}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)

  set(projects ${CPACK_INSTALL_CMAKE_PROJECTS})
  list(APPEND projects ${CMAKE_BINARY_DIR}/${folder} ${package} ALL /)
  set(CPACK_INSTALL_CMAKE_PROJECTS ${projects} PARENT_SCOPE)
  set(components ${CPACK_COMPONENTS_ALL})
  list(APPEND components ${component} debian_${component})
  set(CPACK_COMPONENTS_ALL ${components} PARENT_SCOPE)
endfunction()

add_debian_package(component component-halvex-encryption database components/halvex_encryption
  "RSA keys, encryption, signatures and digests for Dovrin"
  "A loadable component of the Dovrin database server: seven SQL functions for
RSA keys, encryption, signatures and message digests, on OpenSSL 3."
  component_halvex_encryption "the Dovrin server" /usr/lib/dovrin/components/component_halvex_encryption.so)
set(CPACK_DEBIAN_COMPONENT_PACKAGE_PACKAGE_SHLIBDEPS ON)

if(HALVEX_BUILD_SQLITE_HOST)
  add_debian_package(sqlite sqlite3-halvex database hosts/sqlite
    "RSA keys, encryption, signatures and digests in SQLite"
    "An extension that gives SQLite seven SQL functions for RSA keys, encryption,
signatures and message digests, on OpenSSL 3. The command .load halvex_sqlite
of the sqlite3 shell loads it, as does any program that loads extensions."
    halvex_sqlite SQLite "SELECT load_extension('halvex_sqlite');")
  install_examples(sqlite sqlite3-halvex ${CMAKE_SOURCE_DIR}/examples/*.sql)
  install(PROGRAMS ${CMAKE_SOURCE_DIR}/examples/encrypted_column.py ${CMAKE_SOURCE_DIR}/examples/exchange_with_openssl
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/sqlite3-halvex/examples COMPONENT debian_sqlite EXCLUDE_FROM_ALL)
  set(CPACK_DEBIAN_SQLITE_PACKAGE_PACKAGE_SHLIBDEPS ON)
  # Debian's own library is built with extension loading.
  set(CPACK_DEBIAN_SQLITE_PACKAGE_PACKAGE_RECOMMENDS "libsqlite3-0 (>= 3.38)")
  set(CPACK_DEBIAN_SQLITE_PACKAGE_PACKAGE_SUGGESTS sqlite3)
endif()

if(HALVEX_BUILD_POSTGRESQL_HOST)
  add_debian_package(postgresql postgresql-${HALVEX_PG_VERSION}-halvex database hosts/postgresql
    "RSA keys, encryption, signatures and digests in PostgreSQL"
    "An extension of PostgreSQL ${HALVEX_PG_VERSION} with seven SQL functions for RSA keys,
encryption, signatures and message digests, on OpenSSL 3. The statement
CREATE EXTENSION halvex_encryption brings them into a database."
    halvex_postgresql-${HALVEX_PG_VERSION} "PostgreSQL ${HALVEX_PG_VERSION}" "CREATE EXTENSION halvex_encryption;")
  install_examples(postgresql postgresql-${HALVEX_PG_VERSION}-halvex ${CMAKE_SOURCE_DIR}/examples/postgresql/*.sql)
  set(CPACK_DEBIAN_POSTGRESQL_PACKAGE_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_POSTGRESQL_PACKAGE_PACKAGE_DEPENDS postgresql-${HALVEX_PG_VERSION})
  set(CPACK_DEBIAN_POSTGRESQL_PACKAGE_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/prerm)
  configure_file(prerm.in prerm @ONLY FILE_PERMISSIONS
                 OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endif()

# After the others: what the folder of this file installs, the documents of all packages, looks at their modules.
add_debian_package(development component-halvex-encryption-dev libdevel packaging
  "Binary interface of the Dovrin server and its components"
  "The C++ headers that a component of the Dovrin database server, or a program
that loads components, is compiled with; their CMake package
(dovrin_interface) and pkg-config file (dovrin-interface)."
  "" "" "")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_PACKAGE_ARCHITECTURE all)

include(CPack)
