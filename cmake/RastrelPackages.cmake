# Debian packages by CPack: the libraries, what compiling against them needs, and the command.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME rastrel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Rastrel's maintainers <maintainers@users.noreply.github.com>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development command)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(soname ${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME librastrel${soname})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# PDF pages that are more than an image are drawn by pdftoppm; JBIG2 images are read by jbig2dec; the rarer formats by
# libvips.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS "poppler-utils, jbig2dec, libvips42")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Straight, clean pages of scanned ones: the libraries")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME librastrel-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "librastrel${soname} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Straight, clean pages of scanned ones: headers and static libraries")
set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME rastrel)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "librastrel${soname} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_COMMAND_DESCRIPTION "Straight, clean pages of scanned ones: the command")

# As Debian wants it of every package.
foreach(component library development command)
  string(TOUPPER ${component} upper)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
    RENAME copyright COMPONENT ${component})
endforeach()
include(CPack)
