# Builds the product as the phone does: the product folders and phone_device.cpp, without sim/ in the
# include path and without the phone's libraries. Then checks that every undefined symbol is one that
# the phone provides and that packaging/phone/needed.txt lists, and the size of the library for the
# phone's processor.
find_program(PELTO_PYTHON python3 REQUIRED)

set(tree ${PROJECT_BINARY_DIR}/phone-tree)
file(REMOVE_RECURSE ${tree})
file(MAKE_DIRECTORY ${tree})
foreach(folder IN ITEMS ${PELTO_PRODUCT_FOLDERS} phone platform)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${tree}/${folder} SYMBOLIC)
endforeach()
set_target_properties(pelto_compile PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES ${tree}
  INTERFACE_LINK_OPTIONS "")

# Ignores the folders' tests, which need the simulated phone.
function(pelto_test)
endfunction()

add_library(pelto_product OBJECT)
target_link_libraries(pelto_product PUBLIC pelto_compile)
target_compile_options(pelto_product PRIVATE -ffunction-sections -fdata-sections)
target_include_directories(pelto_product PRIVATE ${tree}/platform)
foreach(folder IN LISTS PELTO_PRODUCT_FOLDERS)
  add_subdirectory(${folder})
endforeach()

# The host is compiled only: it is linked with the phone's libraries.
set(phone_host ${PROJECT_SOURCE_DIR}/host/phone_main.cpp)
add_library(pelto_phone_host OBJECT ${phone_host})
target_link_libraries(pelto_phone_host PRIVATE pelto_compile)
target_include_directories(pelto_phone_host PRIVATE ${tree}/platform)

# Compiled once more against declarations of just what the product may use of the phone's libraries.
get_target_property(product_sources pelto_product SOURCES)
add_library(pelto_product_alone OBJECT ${product_sources} ${phone_host})
target_link_libraries(pelto_product_alone PRIVATE pelto_compile)
set(declarations ${PROJECT_SOURCE_DIR}/cmake/phone_libraries.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${declarations})
file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/phone-headers)
file(STRINGS ${declarations} headers REGEX "^// <.*>$")
foreach(header IN LISTS headers)
  string(REGEX REPLACE "^// <(.*)>$" "${PROJECT_BINARY_DIR}/phone-headers/\\1" header ${header})
  file(WRITE ${header} "#include \"${declarations}\"\n")
endforeach()
target_include_directories(pelto_product_alone PRIVATE ${PROJECT_BINARY_DIR}/phone-headers)

# The examples compile for the phone as they are.
add_library(pelto_examples_alone OBJECT examples/listener.cpp examples/reporter.cpp)
target_link_libraries(pelto_examples_alone PRIVATE pelto_compile)
target_compile_definitions(pelto_examples_alone PRIVATE PELTO_CLIENT)
target_include_directories(pelto_examples_alone PRIVATE ${PROJECT_BINARY_DIR}/phone-headers)

add_library(peltoservice SHARED $<TARGET_OBJECTS:pelto_product> phone/phone_device.cpp)
target_link_libraries(peltoservice PRIVATE pelto_compile Threads::Threads)
target_link_options(peltoservice PRIVATE -Wl,--gc-sections)
set(most_bytes 0)  # 0: no limit
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(most_bytes 131072)
endif()
set(needed ${PROJECT_SOURCE_DIR}/packaging/phone/needed.txt)
set_property(TARGET peltoservice PROPERTY LINK_DEPENDS ${needed})
add_custom_command(TARGET peltoservice POST_BUILD
  COMMAND ${CMAKE_STRIP} -o libpeltoservice.stripped.so $<TARGET_FILE:peltoservice>
  COMMAND ${PELTO_PYTHON} -B ${PROJECT_SOURCE_DIR}/tools/check_phone_library.py
    --nm ${CMAKE_NM} --platform ${tree}/platform --needed ${needed}
    --stripped libpeltoservice.stripped.so --most-bytes ${most_bytes} $<TARGET_FILE:peltoservice>
  VERBATIM)
