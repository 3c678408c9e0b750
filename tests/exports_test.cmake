# Checks that the shared library exports what the public headers declare, and nothing else.
file(READ ${SOURCE_DIR}/frame/rastrel.h rastrelHeader)
file(READ ${SOURCE_DIR}/platform/host.h hostHeader)
string(REGEX MATCHALL "RASTREL_(HOST_)?API [^(;#]*\\(" declarations "${rastrelHeader}${hostHeader}")
foreach(declaration IN LISTS declarations)
  string(REGEX MATCH "([A-Za-z0-9_]+)\\($" name "${declaration}")
  list(APPEND declared ${CMAKE_MATCH_1})
endforeach()

execute_process(COMMAND nm -D --defined-only --format=posix ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[A-Za-z0-9_.]+ [A-Z] [^\n]*" symbols "${symbols}")
list(TRANSFORM symbols REPLACE " .*" "")

list(FILTER declared EXCLUDE REGEX "^__")  # from the definitions of the macros themselves
list(SORT declared)
list(SORT symbols)
if(NOT "${declared}" STREQUAL "${symbols}")
  message(FATAL_ERROR "declared: ${declared}\nexported: ${symbols}")
endif()
