# GoogleTest is built from Debian's sources, with the compiler and the sanitizer of each build.
set(PELTO_GOOGLETEST /usr/src/googletest CACHE PATH "GoogleTest's source tree")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${PELTO_GOOGLETEST} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(target IN ITEMS gtest gmock)
  if(PELTO_SANITIZE STREQUAL "address")
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined)
  elseif(PELTO_SANITIZE STREQUAL "thread")
    target_compile_options(${target} PRIVATE -fsanitize=thread)
  endif()
endforeach()
include(GoogleTest)

set(PELTO_TEST_TIMEOUT 60 CACHE STRING "Seconds a test may take")

# The environment of the tests: options of the sanitizer, or the emulator for programs of another
# processor, which a test puts before the commands that it starts. A process under the thread sanitizer
# sleeps at its end, so that threads still running can race with it; a second each would be most of the time.
if(PELTO_SANITIZE STREQUAL "address")
  set(PELTO_TEST_ENVIRONMENT ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1)
elseif(PELTO_SANITIZE STREQUAL "thread")
  set(PELTO_TEST_ENVIRONMENT TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:atexit_sleep_ms=100)
else()
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  set(PELTO_TEST_ENVIRONMENT "PELTO_EMULATOR=${emulator}")
endif()

# A test that makes no phone of its own ends, rather than use the developer's.
list(APPEND PELTO_TEST_ENVIRONMENT PELTO_PHONE=/nonexistent)

# The fixture of a fresh phone, and the main function of every test program. Its precompiled header serves
# them all, so all have the same options; those for position-independent code would differ.
add_library(pelto_test_support STATIC
  ${PROJECT_SOURCE_DIR}/tests/support/main.cpp ${PROJECT_SOURCE_DIR}/tests/support/phone_fixture.cpp)
target_link_libraries(pelto_test_support PUBLIC peltophone gtest gmock)
target_compile_definitions(pelto_test_support PUBLIC PELTO_SANITIZED=$<NOT:$<STREQUAL:${PELTO_SANITIZE},>>)
target_precompile_headers(pelto_test_support PRIVATE <gmock/gmock.h>)
set_target_properties(pelto_test_support PROPERTIES POSITION_INDEPENDENT_CODE OFF)

# pelto_test(NAME SOURCES file... [LIBRARIES target...]): a test program, with one ctest entry per test
# case, since process-wide objects are never destroyed and each case needs fresh ones.
function(pelto_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES} $<TARGET_OBJECTS:pelto_product> $<TARGET_OBJECTS:pelto_door>)
  target_link_libraries(${name} PRIVATE pelto_test_support ${ARG_LIBRARIES})
  target_precompile_headers(${name} REUSE_FROM pelto_test_support)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT ${PELTO_TEST_TIMEOUT}
    PROPERTIES TIMEOUT ${PELTO_TEST_TIMEOUT} ENVIRONMENT "${PELTO_TEST_ENVIRONMENT}")
endfunction()
