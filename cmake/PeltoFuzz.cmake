# pelto_fuzzer(NAME SOURCES file... [LIBRARIES target...]): a program around LLVMFuzzerTestOneInput.
# With PELTO_FUZZ it is a fuzzer. Otherwise it replays fuzz/seeds/NAME, among them each input that
# once failed, as one ctest entry.
add_custom_target(pelto_fuzzers)

function(pelto_fuzzer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES} $<TARGET_OBJECTS:pelto_product> $<TARGET_OBJECTS:pelto_door>)
  target_link_libraries(${name} PRIVATE peltophone ${ARG_LIBRARIES})
  add_dependencies(pelto_fuzzers ${name})
  if(PELTO_FUZZ)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/replay.cpp)
    add_test(NAME fuzz.${name} COMMAND ${name} ${PROJECT_SOURCE_DIR}/fuzz/seeds/${name})
    set_tests_properties(fuzz.${name} PROPERTIES
      TIMEOUT ${PELTO_TEST_TIMEOUT} ENVIRONMENT "${PELTO_TEST_ENVIRONMENT}")
  endif()
endfunction()
