# Compiler and linker options of every target: warnings, include paths, sanitizers.
find_package(Threads REQUIRED)

add_library(pelto_compile INTERFACE)
target_include_directories(pelto_compile INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)
# Functions of the shared libraries may be inlined in their own source file: the one that a program
# replaces (fuzz/capture_fuzzer.cpp) is called from another.
target_compile_options(pelto_compile INTERFACE -fno-semantic-interposition)
# The workstation's file systems have directory offsets of 64 bits; a 32-bit readdir() stops early at
# them.
target_compile_definitions(pelto_compile INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(pelto_compile INTERFACE
  -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wnon-virtual-dtor -Woverloaded-virtual -Werror)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(pelto_compile INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()

# -fno-sanitize=vptr: that check reads memory through a pipe, and reports good objects when a test has
# used up the descriptors.
if(PELTO_SANITIZE STREQUAL "address")
  target_compile_options(pelto_compile INTERFACE
    -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(pelto_compile INTERFACE -fsanitize=address,undefined)
elseif(PELTO_SANITIZE STREQUAL "thread")
  target_compile_options(pelto_compile INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(pelto_compile INTERFACE -fsanitize=thread)
elseif(NOT PELTO_SANITIZE STREQUAL "")
  message(FATAL_ERROR "PELTO_SANITIZE is '${PELTO_SANITIZE}'; it takes address, thread or nothing")
endif()
if(PELTO_SANITIZE STREQUAL "")
  target_link_options(pelto_compile INTERFACE -Wl,--no-undefined)
endif()

if(PELTO_FUZZ)
  target_compile_options(pelto_compile INTERFACE -fsanitize=fuzzer-no-link)
endif()
