# The manuals, out of what the programs say about themselves, and the completion script that nyxctl prints.

file(GLOB NYX_MANPAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/manpages/*.py)
set(written)

function(nyx_manual program section component)
  set(file ${PROJECT_BINARY_DIR}/man/man${section}/${program}.${section})
  add_custom_command(
    OUTPUT ${file} ${file}.gz
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tools/manpages ${NYX_PROGRAMS}/${program} ${section} ${file}
    COMMAND gzip -9nkf ${file}
    DEPENDS ${program} ${NYX_MANPAGES}
    COMMENT "Writing the manual ${program}.${section}"
    VERBATIM)
  install(FILES ${file}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  set(written ${written} ${file} PARENT_SCOPE)
endfunction()

nyx_manual(nyxctl 1 client)
nyx_manual(nyx-agent 8 agent)

set(completion ${PROJECT_BINARY_DIR}/completion/nyxctl)
add_custom_command(
  OUTPUT ${completion}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/completion
  COMMAND ${NYX_PROGRAMS}/nyxctl completion bash > ${completion}
  DEPENDS nyxctl
  COMMENT "Writing the completion script"
  VERBATIM)
install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT client)
add_custom_target(manuals ALL DEPENDS ${written} ${completion})
