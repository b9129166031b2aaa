# Half of the time that a unit takes to compile goes into the headers of other projects. With NYX_PRECOMPILE they are
# compiled once. A missing #include then goes unnoticed: the presets asan and release leave it OFF.

option(NYX_PRECOMPILE "Precompile the headers of other projects" OFF)
if(NYX_PRECOMPILE AND CCACHE) # which otherwise keeps nothing that uses precompiled headers
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()

# nyx_precompiled(SET LIBRARY... HEADERS <header>...): a set is compiled by a target of its own, which others reuse.
function(nyx_precompiled set)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS")
  file(WRITE ${PROJECT_BINARY_DIR}/gen/precompiled_${set}.cc "")
  add_library(nyx_precompiled_${set} OBJECT EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/gen/precompiled_${set}.cc)
  target_link_libraries(nyx_precompiled_${set} PRIVATE nyx_options agent_api protobuf::libprotobuf gRPC::grpc++ ${arg_UNPARSED_ARGUMENTS})
  target_precompile_headers(nyx_precompiled_${set} PRIVATE
    <algorithm> <chrono> <functional> <map> <memory> <string> <thread> <unordered_map> <vector>
    <google/protobuf/message.h> <grpcpp/grpcpp.h> <spdlog/spdlog.h> ${arg_HEADERS})
endfunction()

# nyx_precompile(SET TARGET...): the targets need nyx_options.
function(nyx_precompile set)
  if(NYX_PRECOMPILE)
    foreach(target IN LISTS ARGN)
      target_link_libraries(${target} PRIVATE agent_api gRPC::grpc++)
      target_compile_options(${target} PRIVATE -fPIC) # as the set has it: -fPIE of programs does not fit
      target_precompile_headers(${target} REUSE_FROM nyx_precompiled_${set})
    endforeach()
  endif()
endfunction()
