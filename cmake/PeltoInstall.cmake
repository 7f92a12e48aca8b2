# Installs the programs, the two libraries, and for clients of the service the headers with the files by
# which CMake and pkg-config find them. None of them names the prefix: the installation can be moved.
include(CMakePackageConfigHelpers)

file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(pelto peltoserviced pelto-capture PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
set_target_properties(peltophone peltoservice PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS pelto peltoserviced pelto-capture peltoservice)

# The headers of the interface, of the way to the service's object and of the log, with all that they
# include.
set(client_headers
  android/log.h
  binder/Binder.h binder/IBinder.h binder/IInterface.h binder/IServiceManager.h
  binder/ProcessState.h
  ipeltoservice/IPeltoNativeClient.h ipeltoservice/IPeltoService.h
  utils/Errors.h utils/RefBase.h utils/String16.h utils/String8.h utils/StrongPointer.h)
foreach(header IN LISTS client_headers)
  cmake_path(GET header PARENT_PATH library)
  install(FILES platform/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelto/${library})
endforeach()

set_target_properties(peltophone PROPERTIES EXPORT_NAME client)
install(TARGETS peltophone EXPORT pelto-targets
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelto)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/pelto)
install(EXPORT pelto-targets NAMESPACE pelto:: DESTINATION ${package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/pelto-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/pelto-config.cmake ${PROJECT_BINARY_DIR}/pelto-config-version.cmake
  DESTINATION ${package})

# pkg-config knows the folder of its file.
set(pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix ${pkgconfig} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix ${prefix})
file(RELATIVE_PATH include ${pkgconfig} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/pelto-client.pc.in ${PROJECT_BINARY_DIR}/pelto-client.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pelto-client.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
