# Installs the documents that every Debian package has: its copyright, the changes of the project and those of the
# package, its manual page, and the list of what the modules in it are linked with.
#
# The caller sets `package`, `version`, `maintainer`, `source_folder` and, for a manual page, `page`, `engine` and
# `synopsis`. The date is SOURCE_DATE_EPOCH's, and HALVEX_PACKAGE_REVISION in the environment is the part of the
# package's version behind the hyphen.

set(folder $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/doc/${package})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(revision $ENV{HALVEX_PACKAGE_REVISION})
if(NOT revision)
  set(revision 1)
endif()

configure_file(${source_folder}/packaging/copyright.in ${folder}/copyright @ONLY)
configure_file(${source_folder}/packaging/changelog.in ${folder}/changelog.Debian @ONLY)
configure_file(${source_folder}/CHANGELOG.md ${folder}/changelog COPYONLY)
file(CHMOD ${folder}/copyright ${folder}/changelog ${folder}/changelog.Debian
     PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
configure_file(${source_folder}/packaging/lintian-overrides.in
               $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/lintian/overrides/${package} @ONLY)
execute_process(COMMAND gzip -9nf ${folder}/changelog ${folder}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)

# The functions as the README lists them.
if(page)
  string(TIMESTAMP day "%Y-%m-%d" UTC)
  string(TOUPPER ${page} PAGE)
  set(functions "")
  file(STRINGS ${source_folder}/README.md rows REGEX "^\\| `(create|asymmetric)_")
  foreach(row IN LISTS rows)
    string(REGEX REPLACE "^\\| `([^`]*)` \\| (.*) \\|$" ".TP\n.B \\1\n\\2" entry "${row}")
    string(APPEND functions "${entry}\n")
  endforeach()
  set(manual $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/man/man7/${page}.7)
  configure_file(${source_folder}/packaging/manual.7.in ${manual} @ONLY)
  file(CHMOD ${manual} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  execute_process(COMMAND gzip -9nf ${manual} COMMAND_ERROR_IS_FATAL ANY)
endif()

# The modules as they were installed before this script runs.
file(GLOB_RECURSE modules $ENV{DESTDIR}/*.so)
if(modules)
  execute_process(
    COMMAND ${source_folder}/tools/make-sbom ${package} ${version}-${revision} $ENV{DESTDIR} ${modules}
            --compiled-in nlohmann-json3-dev
    OUTPUT_FILE ${folder}/sbom.spdx.json COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD ${folder}/sbom.spdx.json PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()
