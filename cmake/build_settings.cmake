# How every target of this project is compiled: language, warnings, hardening, sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The same object comes out of any folder: no absolute path of the sources or the build reaches it.
# A coverage report needs them, to find the sources.
if(NOT HALVEX_COVERAGE)
  add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
endif()

add_library(halvex_warnings INTERFACE)
target_compile_options(halvex_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${HALVEX_WARNINGS_AS_ERRORS}>:-Werror>
)

# Protection of indirect branches and return addresses, which each processor has in its own way.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(branch_protection -mbranch-protection=standard)
  set(branch_protection_marks)
else()
  set(branch_protection -fcf-protection=full)
  set(branch_protection_marks LINKER:-z,ibt LINKER:-z,shstk)
endif()

# What is loaded into somebody's server: hidden names, no symbol that pins the object in memory after
# dlclose (unique symbols), and every protection that compiler and linker offer. The sanitizers' runtimes
# need undefined symbols and bring checks of their own.
add_library(halvex_loadable INTERFACE)
target_compile_options(halvex_loadable INTERFACE
  -fvisibility=hidden
  $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>
  -fstack-protector-strong
  -fstack-clash-protection
  ${branch_protection}
)
target_compile_definitions(halvex_loadable INTERFACE _GLIBCXX_ASSERTIONS)
target_link_options(halvex_loadable INTERFACE
  LINKER:-z,now LINKER:-z,relro LINKER:-z,noexecstack ${branch_protection_marks}
)
if(HALVEX_SANITIZE)
  add_compile_options(-fsanitize=${HALVEX_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${HALVEX_SANITIZE})
else()
  target_link_options(halvex_loadable INTERFACE LINKER:-z,defs)
  target_compile_options(halvex_loadable INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>)
endif()

# What libFuzzer steers by; its main function is linked into the targets alone.
if(HALVEX_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

# gcc counts in everything, clang in what is shipped: a file for each object in each process.
if(HALVEX_COVERAGE)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(halvex_loadable INTERFACE
      -fprofile-instr-generate=${CMAKE_BINARY_DIR}/profiles/%p-%m.profraw -fprofile-update=atomic
      -fcoverage-mapping -fcoverage-mcdc)
    add_link_options(-fprofile-instr-generate)
  else()
    add_compile_options(--coverage -fprofile-update=atomic -fprofile-abs-path)
    add_link_options(--coverage)
  endif()
endif()
