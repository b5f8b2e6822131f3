# Two Debian packages, by "cpack" in the build folder: the library with its programs, and what plugins are built with.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zdefault)
set(CPACK_PACKAGE_CONTACT "The zdefault developers <zdefault@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL zdefault zdefault-dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_NAME libzdefault${PROJECT_VERSION_MAJOR})
set(CPACK_COMPONENT_ZDEFAULT_DESCRIPTION "The library, and the programs that run and deploy plugins.")
set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_GENERATE_SHLIBS ON)

set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_NAME libzdefault-dev)
set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_ZDEFAULT-DEV_DESCRIPTION
    "The headers, and what a plugin is built with beside them.")
set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_DEPENDS
    "libzdefault${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}), qtbase5-dev (>= 5.15), cmake (>= 3.16), g++, make | ninja-build")

include(CPack)
