# Runs at the beginning of an installation: notes where DESTDIR has it go, and adds which of its
# directories, and of those above them, are not there yet. Keeps no lists of paths: those may hold any
# character.
set(stage "$ENV{DESTDIR}")
if(stage)
  cmake_path(ABSOLUTE_PATH stage)
endif()
file(WRITE "${PELTO_INSTALL_NOTES}/install_destdir.txt" "${stage}\n")
file(APPEND "${PELTO_INSTALL_NOTES}/install_directories.txt" "")
foreach(directory IN LISTS PELTO_INSTALL_DIRECTORIES)
  cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
  set(directory "${stage}${directory}")
  cmake_path(ABSOLUTE_PATH directory NORMALIZE)
  while(NOT EXISTS "${directory}")
    file(APPEND "${PELTO_INSTALL_NOTES}/install_directories.txt" "${directory}\n")
    cmake_path(GET directory PARENT_PATH directory)
  endwhile()
endforeach()
