# The manual page and the completions of a program, which it prints itself.
include(GNUInstallDirs)

# pelto_program_texts(PROGRAM [target...]): makes and installs them. They are made again when an object
# file of the program, of pelto_commandline or of the other targets changes, not when the program is linked
# again because of another commit.
function(pelto_program_texts program)
  set(objects $<TARGET_OBJECTS:${program}> $<TARGET_OBJECTS:pelto_commandline>)
  foreach(target IN LISTS ARGN)
    list(APPEND objects $<TARGET_OBJECTS:${target}>)
  endforeach()
  set(files)
  foreach(text IN ITEMS
      "man|${CMAKE_INSTALL_MANDIR}/man1|${program}.1"
      "bash|${CMAKE_INSTALL_DATADIR}/bash-completion/completions|${program}"
      "zsh|${CMAKE_INSTALL_DATADIR}/zsh/site-functions|_${program}")
    string(REPLACE "|" ";" text ${text})
    list(POP_FRONT text kind folder name)
    set(file ${PROJECT_BINARY_DIR}/${kind}/${name})
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/${kind})
    add_custom_command(OUTPUT ${file}
      COMMAND ${program} --generate ${kind} > ${file}
      DEPENDS ${objects}
      COMMENT "Generating ${kind}/${name}"
      VERBATIM)
    install(FILES ${file} DESTINATION ${folder})
    list(APPEND files ${file})
  endforeach()
  add_custom_target(${program}_texts ALL DEPENDS ${files})
endfunction()
