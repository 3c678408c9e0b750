# Checks that the shared library exports what the public headers declare, under plain names, and nothing else.
include(${SOURCE_DIR}/cmake/RastrelExports.cmake)
file(READ ${SOURCE_DIR}/frame/rastrel.h rastrelHeader)
if(LIBRARY MATCHES "\\.dll$")
  rastrel_declared_functions("${rastrelHeader}" RASTREL_API declared)
  execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
  # The name table is lines of "[ordinal] name", up to an empty one.
  string(REGEX REPLACE ".*\\[Ordinal/Name Pointer\\] Table" "" symbols "${symbols}")
  string(REGEX REPLACE "\n *\n.*" "" symbols "${symbols}")
  string(REGEX MATCHALL "\\[ *[0-9]+\\] [^\n]*" symbols "${symbols}")
  list(TRANSFORM symbols REPLACE ".* " "")
else()
  file(READ ${SOURCE_DIR}/platform/host.h hostHeader)
  rastrel_declared_functions("${rastrelHeader}${hostHeader}" "RASTREL_(HOST_)?API" declared)
  execute_process(COMMAND nm -D --defined-only --format=posix ${LIBRARY} OUTPUT_VARIABLE symbols
    COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[A-Za-z0-9_.]+ [A-Z] [^\n]*" symbols "${symbols}")
  list(TRANSFORM symbols REPLACE " .*" "")
endif()

list(SORT symbols)
if(NOT "${declared}" STREQUAL "${symbols}")
  message(FATAL_ERROR "declared: ${declared}\nexported: ${symbols}")
endif()
