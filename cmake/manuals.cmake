# The manuals, out of what the programs say about themselves, and the completion scripts that nyxctl prints.

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

# The script of a shell, where that looks for it.
function(nyx_completion shell folder name)
  set(file ${PROJECT_BINARY_DIR}/completion/${shell}/${name})
  add_custom_command(
    OUTPUT ${file}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/completion/${shell}
    COMMAND ${NYX_PROGRAMS}/nyxctl completion ${shell} > ${file}
    DEPENDS nyxctl
    COMMENT "Writing the completion script for ${shell}"
    VERBATIM)
  install(FILES ${file} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder} COMPONENT client)
  set(written ${written} ${file} PARENT_SCOPE)
endfunction()

nyx_completion(bash bash-completion/completions nyxctl)
nyx_completion(zsh zsh/vendor-completions _nyxctl)
nyx_completion(fish fish/vendor_completions.d nyxctl.fish)
add_custom_target(manuals ALL DEPENDS ${written})
