# Most of a unit's compile time is spent on the headers of the standard library, protobuf, gRPC and spdlog. With
# NYX_PRECOMPILE they are compiled once. A missing #include then goes unnoticed: presets that ship or run in the long
# round leave it OFF.

option(NYX_PRECOMPILE "Precompile headers of other projects" OFF)

# Two sets, for code of libraries and of programs: their -fPIC and -fPIE don't match.
if(NYX_PRECOMPILE)
  file(WRITE ${PROJECT_BINARY_DIR}/gen/precompiled.cc "")
  add_library(nyx_precompiled_library OBJECT ${PROJECT_BINARY_DIR}/gen/precompiled.cc)
  add_executable(nyx_precompiled_program EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/gen/precompiled.cc)
  foreach(set library program)
    target_link_libraries(nyx_precompiled_${set} PRIVATE nyx_options agent_api gRPC::grpc++ protobuf::libprotobuf Threads::Threads)
    target_precompile_headers(nyx_precompiled_${set} PRIVATE
      <algorithm> <chrono> <functional> <map> <memory> <string> <thread> <unordered_map> <vector>
      <google/protobuf/message.h> <google/protobuf/map_entry.h> <grpcpp/grpcpp.h> <spdlog/spdlog.h>)
  endforeach()
endif()

function(nyx_precompile set)
  if(NYX_PRECOMPILE)
    foreach(target IN LISTS ARGN)
      target_link_libraries(${target} PRIVATE Threads::Threads agent_api)
      target_compile_options(${target} PRIVATE -Wpedantic)
      target_precompile_headers(${target} REUSE_FROM nyx_precompiled_${set})
    endforeach()
  endif()
endfunction()
