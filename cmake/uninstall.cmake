# Removes what the last installation from the folder BUILD has installed.
set(manifest "${BUILD}/install_manifest.txt")
set(note "${BUILD}/install_directories.txt")
if(NOT EXISTS "${manifest}" OR NOT EXISTS "${note}")
  message(FATAL_ERROR "uninstall: nothing is known to be installed from ${BUILD}")
endif()

file(STRINGS "${manifest}" files)
list(TRANSFORM files PREPEND "$ENV{DESTDIR}")
foreach(file IN LISTS files)
  message(STATUS "Removing: ${file}")
endforeach()
file(REMOVE ${files})

# Inner ones first. rmdir leaves a directory that holds something.
file(STRINGS "${note}" directories)
list(SORT directories ORDER DESCENDING)
foreach(directory IN LISTS directories)
  execute_process(COMMAND rmdir -- "${directory}" ERROR_QUIET)
endforeach()
file(REMOVE "${manifest}" "${note}")
