# The checks over the sources' text, as ctest entries: each on this tree, and once on planted
# violations.
option(PELTO_SOURCE_CHECKS "Have ctest check includes, doors and lock annotations too" OFF)

if(PELTO_SOURCE_CHECKS)
  find_program(PELTO_PYTHON python3 REQUIRED)
  foreach(check IN ITEMS includes doors annotations)
    add_test(NAME source.${check}
      COMMAND ${PELTO_PYTHON} -B ${PROJECT_SOURCE_DIR}/tools/check_${check}.py ${PROJECT_SOURCE_DIR})
  endforeach()
  foreach(suite IN ITEMS source_checks phone_library scripts)
    add_test(NAME source.${suite}_test
      COMMAND ${PELTO_PYTHON} -B ${PROJECT_SOURCE_DIR}/tests/checks/${suite}_test.py)
  endforeach()
endif()
