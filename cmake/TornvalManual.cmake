# Manual pages and completion, written by the programs' own --help.
find_package(Python3 COMPONENTS Interpreter)
if(CMAKE_CROSSCOMPILING OR TORNVAL_SANITIZE OR NOT Python3_FOUND)
  return()
endif()

set(manual ${PROJECT_SOURCE_DIR}/cmake/manual.py)
set(folder ${PROJECT_BINARY_DIR}/manual)
file(MAKE_DIRECTORY ${folder})
foreach(program tornval tornval-instrument)
  add_custom_command(OUTPUT ${folder}/${program}.1
    COMMAND Python3::Interpreter ${manual} program $<TARGET_FILE:${program}> ${folder}/${program}.1
      ${PROJECT_VERSION}
    DEPENDS ${program} ${manual})
endforeach()
set(pages ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/serial-line.md)
add_custom_command(OUTPUT ${folder}/TornvalC63.ini.5
  COMMAND Python3::Interpreter ${manual} configuration ${folder}/TornvalC63.ini.5
    ${PROJECT_VERSION} ${pages}
  DEPENDS ${pages} ${manual})
add_custom_command(OUTPUT ${folder}/tornval.bash
  COMMAND Python3::Interpreter ${manual} completion ${folder}/tornval.bash
    $<TARGET_FILE:tornval> $<TARGET_FILE:tornval-instrument>
  DEPENDS tornval tornval-instrument ${manual})
add_custom_target(manual ALL DEPENDS ${folder}/tornval.1 ${folder}/tornval-instrument.1
  ${folder}/TornvalC63.ini.5 ${folder}/tornval.bash)

if(TORNVAL_INSTALL)
  install(FILES ${folder}/tornval.1 ${folder}/tornval-instrument.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${folder}/TornvalC63.ini.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5
    COMPONENT tools)
  # bash looks for a file by the name of the command.
  foreach(program tornval tornval-instrument)
    install(FILES ${folder}/tornval.bash RENAME ${program}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  endforeach()
endif()
