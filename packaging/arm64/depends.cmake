# What the packages for another machine depend on. CPack would ask this machine's dpkg, which does not know the libraries
# in the sysroot; they say so themselves, in what packaging/arm64/sysroot kept of their packages.

set(folder ${CPACK_PACKAGE_DIRECTORY}/_CPack_Packages/depends)
file(WRITE ${folder}/debian/control "Source: nyx-services\n\nPackage: any\nArchitecture: any\n")

# Sets the packages that the files of a component need.
function(set_depends component)
  execute_process(
    COMMAND dpkg-shlibdeps -O -l${CPACK_NYX_LIBRARIES} -l${CPACK_NYX_SYSROOT}/usr/lib/aarch64-linux-gnu -l${CPACK_NYX_SYSROOT}/lib/aarch64-linux-gnu
            -L${CPACK_NYX_SYSROOT}.shlibs --ignore-missing-info ${ARGN}
    WORKING_DIRECTORY ${folder} OUTPUT_VARIABLE found ERROR_VARIABLE error RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${error}")
  endif()
  string(REGEX MATCH "shlibs:Depends=([^\n]*)" found "${found}")
  set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

set_depends(RUNTIME ${CPACK_NYX_LIBRARIES}/libnyx_proto.so ${CPACK_NYX_LIBRARIES}/libsvc_quill.so)
set_depends(CLIENT ${CPACK_NYX_PROGRAMS}/nyxctl)
set_depends(AGENT ${CPACK_NYX_PROGRAMS}/nyx-agent ${CPACK_NYX_LIBRARIES}/libnyx_sim.so.0)
