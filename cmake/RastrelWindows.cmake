# What the library is besides its code on Windows: a list of exports and resources.
include(RastrelExports)
enable_language(RC)

rastrel_write_def(${RASTREL_INCLUDE_DIR}/rastrel.h ${PROJECT_BINARY_DIR}/rastrel.def)
configure_file(platform/windows/version.rc.in ${PROJECT_BINARY_DIR}/version.rc @ONLY)
target_sources(rastrel PRIVATE
  ${PROJECT_BINARY_DIR}/rastrel.def ${PROJECT_BINARY_DIR}/version.rc platform/windows/dialogs.rc)
set_target_properties(rastrel PROPERTIES PREFIX "")
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # The library's names are plain. Callers look for decorated ones, which the linker's own import library has not.
  target_link_options(rastrel PRIVATE -Wl,--kill-at)
  add_custom_command(TARGET rastrel POST_BUILD
    COMMAND ${CMAKE_DLLTOOL} --kill-at --input-def ${PROJECT_BINARY_DIR}/rastrel.def
      --output-lib $<TARGET_LINKER_FILE:rastrel>)
endif()
