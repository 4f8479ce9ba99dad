# qarvo_add_test(NAME source... [LIBS lib...] [TIMEOUT seconds])
#
# Every QtTest executable goes through here so that all of them run headless with the same
# environment, and so that a check failing inside a modal dialog ends in a timeout instead of
# hanging the whole run.
function(qarvo_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "LIBS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE qarvo_internal qarvo_testsupport Qt6::Test ${ARG_LIBS})
  add_test(NAME ${name} COMMAND ${name})
  set(runtime_dir ${CMAKE_BINARY_DIR}/test-runtime)
  file(MAKE_DIRECTORY ${runtime_dir})
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${ARG_TIMEOUT}
    # QtTest prints "Totals: 0 passed" for a suite whose every case skipped; that is not a pass.
    FAIL_REGULAR_EXPRESSION "Totals: 0 passed"
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LANG=C.UTF-8;XDG_RUNTIME_DIR=${runtime_dir};XDG_CACHE_HOME=${CMAKE_BINARY_DIR}/test-cache;QARVO_SOURCE_DIR=${PROJECT_SOURCE_DIR};LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0")
endfunction()
