# Where the programs can be run from: the folder they are built in, or that of scripts which run them under emulation.

if(CMAKE_CROSSCOMPILING)
  set(NYX_PROGRAMS ${PROJECT_BINARY_DIR}/emulated)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  foreach(program nyx-agent nyxctl)
    file(WRITE ${NYX_PROGRAMS}/${program} "#!/bin/sh\nexec ${emulator} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${program} \"$@\"\n")
    file(CHMOD ${NYX_PROGRAMS}/${program} FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endforeach()
else()
  set(NYX_PROGRAMS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endif()
