# The target "uninstall" removes the files that the last installation names in install_manifest.txt,
# then the directories that installations have made, where they are empty now. Included before every
# other install rule: the note of what is there already comes first.
install(CODE "set(PELTO_INSTALL_NOTES \"${PROJECT_BINARY_DIR}\")
set(PELTO_INSTALL_DIRECTORIES
  ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR}/cmake/pelto ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  ${CMAKE_INSTALL_INCLUDEDIR}/pelto/android ${CMAKE_INSTALL_INCLUDEDIR}/pelto/binder
  ${CMAKE_INSTALL_INCLUDEDIR}/pelto/ipeltoservice ${CMAKE_INSTALL_INCLUDEDIR}/pelto/utils
  ${CMAKE_INSTALL_MANDIR}/man1 ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)")
install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/note_directories.cmake)

add_custom_target(uninstall
  COMMAND sh ${PROJECT_SOURCE_DIR}/cmake/uninstall.sh ${PROJECT_BINARY_DIR}
  VERBATIM)
