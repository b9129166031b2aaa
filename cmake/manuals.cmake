# The manuals, out of what the programs say about themselves.

file(GLOB NYX_MANPAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/manpages/*.py)
set(manuals)
foreach(manual nyxctl.1 nyx-agent.8)
  string(REGEX MATCH "^(.+)\\.([0-9])$" matched ${manual})
  set(program ${CMAKE_MATCH_1})
  set(file ${PROJECT_BINARY_DIR}/man/man${CMAKE_MATCH_2}/${manual})
  add_custom_command(
    OUTPUT ${file}
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tools/manpages $<TARGET_FILE:${program}> ${CMAKE_MATCH_2} ${file}
    DEPENDS ${program} ${NYX_MANPAGES}
    COMMENT "Writing the manual ${manual}"
    VERBATIM)
  list(APPEND manuals ${file})
endforeach()
add_custom_target(manuals ALL DEPENDS ${manuals})
