# What the library exports is what its public headers declare.

# Sets `names` to the functions that the text of a header declares with `mark`, in alphabetical order.
function(rastrel_declared_functions text mark names)
  string(REGEX MATCHALL "${mark} [^(;#]*\\(" declarations "${text}")
  foreach(declaration IN LISTS declarations)
    string(REGEX MATCH "([A-Za-z0-9_]+)\\($" name "${declaration}")
    list(APPEND found ${CMAKE_MATCH_1})
  endforeach()
  list(FILTER found EXCLUDE REGEX "^__")  # from the definition of the mark itself
  list(SORT found)
  set(${names} ${found} PARENT_SCOPE)
endfunction()

# Writes the linker's list of exports. On 32 bits, where callees clean the stack, a symbol ends in the bytes of its
# function's arguments: 8 for a double, 4 for all others.
function(rastrel_write_def header file)
  file(READ ${header} text)
  rastrel_declared_functions("${text}" RASTREL_API names)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    foreach(name IN LISTS names)
      string(REGEX MATCH "[ *]${name}\\(([^)]*)\\)" declaration "${text}")
      set(arguments "${CMAKE_MATCH_1}")
      string(REGEX MATCHALL "double |,|.$" words "${arguments}")
      list(LENGTH words count)
      math(EXPR bytes "4 * ${count}")
      if(arguments STREQUAL "void")
        set(bytes 0)
      endif()
      list(APPEND symbols ${name}@${bytes})
    endforeach()
  else()
    set(symbols ${names})
  endif()
  list(JOIN symbols "\n  " symbols)
  file(CONFIGURE OUTPUT ${file} CONTENT "LIBRARY rastrel.dll\nEXPORTS\n  @symbols@\n" @ONLY)
endfunction()

# Writes the linker's list of exports for systems of ELF: templates of the standard library that are made in a library
# would be seen otherwise.
function(rastrel_write_version_script header mark file)
  file(READ ${header} text)
  rastrel_declared_functions("${text}" ${mark} names)
  list(JOIN names ";\n    " names)
  file(CONFIGURE OUTPUT ${file} CONTENT "{\n  global:\n    @names@;\n  local:\n    *;\n};\n" @ONLY)
endfunction()
