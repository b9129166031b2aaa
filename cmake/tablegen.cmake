# The C++ that repeats for every table, written into the build tree from schema/quill.toml.

set(NYX_SCHEMA ${PROJECT_SOURCE_DIR}/schema/quill.toml)
set(NYX_TABLEGEN ${PROJECT_SOURCE_DIR}/tools/tablegen)
set(NYX_GEN ${PROJECT_BINARY_DIR}/gen)
set(NYX_TABLE_FAMILIES mapping tunnel flow stats rewrite)

set(NYX_TABLE_FAMILY_SOURCES ${NYX_TABLE_FAMILIES})
list(TRANSFORM NYX_TABLE_FAMILY_SOURCES REPLACE "(.+)" "${NYX_GEN}/svc/nyx_tbl_\\1.cc")
set(NYX_TABLE_FAMILY_HEADERS ${NYX_TABLE_FAMILIES})
list(TRANSFORM NYX_TABLE_FAMILY_HEADERS REPLACE "(.+)" "${NYX_GEN}/svc/nyx_tbl_\\1.h")
set(NYX_TABLE_SIM_SOURCE ${NYX_GEN}/sim/api/nyx_tbl_entry_points.cc)

file(GLOB NYX_TABLEGEN_SOURCES CONFIGURE_DEPENDS ${NYX_TABLEGEN}/*.py)
add_custom_command(
  OUTPUT ${NYX_TABLE_FAMILY_SOURCES} ${NYX_TABLE_FAMILY_HEADERS} ${NYX_TABLE_SIM_SOURCE} ${NYX_GEN}/agent_api/nyx_tbl.h
         ${NYX_GEN}/svc/nyx_tbl_functions.h ${NYX_GEN}/svc/nyx_tbl_methods.inc ${NYX_GEN}/svc/nyx_tbl_calls.inc
  COMMAND Python3::Interpreter ${NYX_TABLEGEN} ${NYX_SCHEMA} --cpp ${NYX_GEN}
  COMMAND ${CMAKE_COMMAND} -E touch_nocreate ${NYX_TABLE_SIM_SOURCE}
  DEPENDS ${NYX_SCHEMA} ${NYX_TABLEGEN_SOURCES}
  COMMENT "Generating the table code from schema/quill.toml"
  VERBATIM)
add_custom_target(nyx_tables DEPENDS ${NYX_TABLE_SIM_SOURCE})
