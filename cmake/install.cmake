# What `cmake --install` puts where, by component: runtime, dev, client, agent, proto, python. Each becomes a package of its own.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(NYX_INSTALL_INCLUDE ${CMAKE_INSTALL_INCLUDEDIR}/svc_quill)
set(NYX_INSTALL_SHARE ${CMAKE_INSTALL_DATADIR}/svc_quill)
set(NYX_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/svc_quill)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME dev)

# Programs and libraries find each other wherever the prefix stands.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr") # where the loader looks anyway
  set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" "$ORIGIN")
endif()

# Before the first file is copied: an unfinished build, or a prefix for other machines, installs nothing.
configure_file(${CMAKE_CURRENT_LIST_DIR}/install_begin.cmake.in ${PROJECT_BINARY_DIR}/install_begin.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/install_begin.cmake ALL_COMPONENTS)

# To be raised by every change that takes something away from svc/exports.txt.
set(NYX_SOVERSION 0)

function(nyx_install_library target)
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${NYX_SOVERSION})
  install(TARGETS ${target} EXPORT svc_quill LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
          INCLUDES DESTINATION ${NYX_INSTALL_INCLUDE})
endfunction()

# A file that moves with its prefix.
function(nyx_install_pkgconfig name)
  file(RELATIVE_PATH NYX_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" NYX_PREFIX_FROM_PC ${NYX_PREFIX_FROM_PC})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

# A file of the client's dictionary. It is copied to where the client that was just built finds it, too.
function(nyx_install_labels file component)
  get_filename_component(name ${file} NAME)
  configure_file(${file} ${PROJECT_BINARY_DIR}/share/svc_quill/labels.d/${name} COPYONLY)
  install(FILES ${file} DESTINATION ${NYX_INSTALL_SHARE}/labels.d COMPONENT ${component})
endfunction()

# After the last target.
function(nyx_install_end)
  install(EXPORT svc_quill NAMESPACE svc_quill:: FILE svc_quill-targets.cmake DESTINATION ${NYX_INSTALL_CMAKE})
  configure_package_config_file(cmake/svc_quill-config.cmake.in ${PROJECT_BINARY_DIR}/svc_quill-config.cmake
                                INSTALL_DESTINATION ${NYX_INSTALL_CMAKE} PATH_VARS NYX_INSTALL_SHARE)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/svc_quill-config-version.cmake COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/svc_quill-config.cmake ${PROJECT_BINARY_DIR}/svc_quill-config-version.cmake
          DESTINATION ${NYX_INSTALL_CMAKE})
  nyx_install_pkgconfig(nyx_proto)
  nyx_install_pkgconfig(svc_quill)
  install(FILES docs/clients.md docs/integrating.md docs/life-of-a-request.md docs/life-of-a-request.svg
                docs/performance.md docs/performance.svg docs/reliability.md docs/tables.md
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libsvc-quill-dev)
  foreach(language dev:libsvc-quill-dev:cc python:python3-nyx:py)
    string(REPLACE ":" ";" language ${language})
    list(GET language 0 component)
    list(GET language 1 package)
    list(GET language 2 suffix)
    install(DIRECTORY docs/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
            FILES_MATCHING PATTERN "*.${suffix}")
  endforeach()
  configure_file(cmake/install_end.cmake.in ${PROJECT_BINARY_DIR}/install_end.cmake @ONLY)
  install(SCRIPT ${PROJECT_BINARY_DIR}/install_end.cmake ALL_COMPONENTS)
endfunction()
