# pelto_test(NAME SOURCES file... [LIBRARIES target...]): one test program, one ctest entry a test
# case, since the process-wide objects never die and each case wants them fresh.
#
# GoogleTest is built from its Debian sources, so that cross builds and sanitizer builds get one of
# their own.
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

function(pelto_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES} $<TARGET_OBJECTS:pelto_product> $<TARGET_OBJECTS:pelto_door>)
  target_link_libraries(${name} PRIVATE pelto_test_support ${ARG_LIBRARIES})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()
