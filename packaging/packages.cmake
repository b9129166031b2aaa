# Debian packages, made by `./dev package`. What goes into which is said where it is installed: its component.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "nyx services maintainers <maintainers@nyx-services.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/arm64/depends.cmake)
  set(CPACK_NYX_SYSROOT ${CMAKE_SYSROOT})
  set(CPACK_NYX_LIBRARIES ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
  set(CPACK_NYX_PROGRAMS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
endif()

set(CPACK_COMPONENTS_ALL runtime dev client agent proto python)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libsvc-quill${NYX_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Service layer of the quill dataplane agent
The gRPC services and the service request thread that an agent loads,
and the messages that it shares with its clients.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libsvc-quill-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime proto)
# The last because gRPC's CMake package asks for all of its programs.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libgrpc++-dev, libprotobuf-dev, libspdlog-dev, protobuf-compiler-grpc")
set(CPACK_DEBIAN_DEV_DESCRIPTION "Service layer of the quill dataplane agent: development files
Contracts of the agent's operations, headers, CMake and pkg-config files,
documentation.")

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME nyxctl)
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION net)
set(CPACK_COMPONENT_CLIENT_DEPENDS runtime proto)
set(CPACK_DEBIAN_CLIENT_DESCRIPTION "Command-line client of the quill dataplane agent
Shows and changes tables, interfaces, ports and the adapter, calls any method
of the agent with JSON, and runs its debug commands.")

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME nyx-agent)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION net)
set(CPACK_COMPONENT_AGENT_DEPENDS runtime)
# Not systemd itself: the agent also runs where it does not.
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS
    "systemd-standalone-sysusers | systemd-sysusers, systemd-standalone-tmpfiles | systemd-tmpfiles")
set(service ${CMAKE_CURRENT_LIST_DIR}/agent)
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA ${service}/conffiles ${service}/postinst ${service}/prerm ${service}/postrm)
set(CPACK_DEBIAN_AGENT_DESCRIPTION "Quill dataplane agent on an in-memory adapter
Serves all services with no card in the machine, for rehearsals, and for people
who write controllers. Fails on demand.")

set(CPACK_DEBIAN_PROTO_PACKAGE_NAME nyx-proto)
set(CPACK_DEBIAN_PROTO_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PROTO_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PROTO_PACKAGE_SHLIBDEPS OFF)
# Which had these files.
set(CPACK_DEBIAN_PROTO_PACKAGE_BREAKS "libsvc-quill-dev (<< 0.2.0)")
set(CPACK_DEBIAN_PROTO_PACKAGE_REPLACES "libsvc-quill-dev (<< 0.2.0)")
set(CPACK_DEBIAN_PROTO_DESCRIPTION "Contracts of the quill dataplane agent
The .proto files of its gRPC services, a descriptor set with their comments,
and the dictionary of names and units: for clients in any language.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-nyx)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11), python3-grpcio (>= 1.51), python3-protobuf (>= 3.21)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/python/postinst ${CMAKE_CURRENT_LIST_DIR}/python/prerm)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Python client of the quill dataplane agent
Programs tables by the million entries, calls all services, notices that the
agent restarted, and makes the in-memory agent fail for tests.")

include(CPack)
