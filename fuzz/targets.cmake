# The fuzzing targets, for the fuzzer itself and for the replay of kept inputs.

set(HALVEX_FUZZ_FOLDER ${CMAKE_CURRENT_LIST_DIR})
set(HALVEX_FUZZ_FUNCTIONS
  create_asymmetric_priv_key
  create_asymmetric_pub_key
  asymmetric_encrypt
  asymmetric_decrypt
  asymmetric_sign
  asymmetric_verify
  create_digest
)
set(HALVEX_FUZZ_TARGETS key_reader log_event row_context sqlite_host ${HALVEX_FUZZ_FUNCTIONS})

# add_fuzz_executable(name target): the code of one target, around the component's own objects, the stand-in server or
# the SQLite extension. It still needs a main function: libFuzzer's, or replay.cc.
function(add_fuzz_executable name target)
  if(target STREQUAL sqlite_host)
    add_executable(${name} ${HALVEX_FUZZ_FOLDER}/sqlite_host_fuzz.cc)
    target_compile_definitions(${name} PRIVATE
      HALVEX_SQLITE_EXTENSION="$<TARGET_FILE_DIR:halvex_sqlite>/$<TARGET_FILE_BASE_NAME:halvex_sqlite>")
    target_link_libraries(${name} PRIVATE SQLite::SQLite3 halvex_warnings)
    add_dependencies(${name} halvex_sqlite)
    return()
  endif()
  if(target STREQUAL row_context)
    add_executable(${name} ${HALVEX_FUZZ_FOLDER}/row_context_fuzz.cc)
    target_compile_definitions(${name} PRIVATE
      HALVEX_COMPONENT_PATH="$<TARGET_FILE:component_halvex_encryption>")
    target_link_libraries(${name} PRIVATE halvex_host_rows halvex_warnings)
    add_dependencies(${name} component_halvex_encryption)
    return()
  endif()
  if(target IN_LIST HALVEX_FUZZ_FUNCTIONS)
    add_executable(${name} ${HALVEX_FUZZ_FOLDER}/function_fuzz.cc)
    target_compile_definitions(${name} PRIVATE HALVEX_FUZZ_FUNCTION="${target}")
  else()
    add_executable(${name} ${HALVEX_FUZZ_FOLDER}/${target}_fuzz.cc)
  endif()
  target_link_libraries(${name} PRIVATE halvex_test_support halvex_encryption_objects halvex_warnings)
endfunction()
