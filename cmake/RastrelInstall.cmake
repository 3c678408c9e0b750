# Installs the libraries, the public headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

set(libraries rastrel rastrel_static)
if(WIN32)
  # Only the loader tells the library of threads that end, and only the DLL holds its dialogs.
  set(libraries rastrel)
endif()
# What programs need to run is the component "library", what compilers need "development".
install(TARGETS ${libraries} EXPORT RastrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)
install(FILES ${RASTREL_INCLUDE_DIR}/rastrel.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(NOT WIN32)
  install(FILES ${RASTREL_INCLUDE_DIR}/rastrel_host.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Rastrel)
install(EXPORT RastrelTargets NAMESPACE Rastrel:: DESTINATION ${packageDir} COMPONENT development)
configure_package_config_file(cmake/RastrelConfig.cmake.in ${PROJECT_BINARY_DIR}/RastrelConfig.cmake
  INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/RastrelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/RastrelConfig.cmake ${PROJECT_BINARY_DIR}/RastrelConfigVersion.cmake
  DESTINATION ${packageDir} COMPONENT development)

# Relative, so that the installed tree can be moved.
file(RELATIVE_PATH RASTREL_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
set(RASTREL_PRIVATE_LIBS "")
if(NOT WIN32)
  set(RASTREL_PRIVATE_LIBS "-lstdc++ -lm -lpthread")
endif()
configure_file(cmake/rastrel.pc.in ${PROJECT_BINARY_DIR}/rastrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/rastrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
