# The Debian packages, by "cpack" in a build folder of the preset "debian": the library, the programs, what
# plugins are built with, and the plugin that takes the bus to other processes, where that is built.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zdefault)
set(CPACK_PACKAGE_CONTACT "The zdefault developers <zdefault@example.org>" CACHE STRING
    "Who answers for the packages: name and mail address of whoever builds them for others")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has a line of its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libzdefault zdefault zdefault-dev)
if(TARGET znats)
    list(APPEND CPACK_COMPONENTS_ALL zdefault-nats)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE zdefault)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0upstream1) # a package of Debian's own, from -1 on, is newer
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(about "Components see each other through ten small interfaces only, and are given what
they need as properties. So any one of them can be replaced while the program
runs, by dropping a plugin file into a folder.")

set(library_package libzdefault${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBZDEFAULT_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBZDEFAULT_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBZDEFAULT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBZDEFAULT_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_LIBZDEFAULT_DESCRIPTION "component framework for Qt 5 applications
${about}
.
This package has the library.")

set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_NAME zdefault)
set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ZDEFAULT_PACKAGE_DEPENDS "${library_package} (= ${debian_version})")
set(CPACK_DEBIAN_ZDEFAULT_DESCRIPTION "programs that run and deploy Qt 5 plugins
${about}
.
This package has zhost, which runs a set of plugins from one JSON file,
zdeploy, which tries a plugin out before it drops it into that folder, and
zctl, which asks and steers a zhost that runs.")

set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_NAME libzdefault-dev)
set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_DEPENDS
    "${library_package} (= ${debian_version}), qtbase5-dev (>= 5.15), cmake (>= 3.16), g++, make | ninja-build")
set(CPACK_DEBIAN_ZDEFAULT-DEV_PACKAGE_RECOMMENDS "zdefault (= ${debian_version})")
set(CPACK_DEBIAN_ZDEFAULT-DEV_DESCRIPTION "component framework for Qt 5 applications (development files)
${about}
.
This package has the headers, the CMake package with which plugins are built,
zdefault-new-plugin, which writes a plugin to begin with, the guide, and
examples.")

set(CPACK_DEBIAN_ZDEFAULT-NATS_PACKAGE_NAME zdefault-nats)
set(CPACK_DEBIAN_ZDEFAULT-NATS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_ZDEFAULT-NATS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ZDEFAULT-NATS_PACKAGE_DEPENDS "${library_package} (= ${debian_version})")
set(CPACK_DEBIAN_ZDEFAULT-NATS_PACKAGE_SUGGESTS nats-server)
set(CPACK_DEBIAN_ZDEFAULT-NATS_PACKAGE_ENHANCES zdefault)
set(CPACK_DEBIAN_ZDEFAULT-NATS_DESCRIPTION "plugin by which Qt 5 components call each other over NATS
${about}
.
This package has libznats.so, a plugin that takes the bus of such a program to
programs on other machines, by a NATS server.")

# cpack finds the libraries that the programs need where they were built.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/zdefault)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)

# What only Debian asks for is put beside the files before they are packed, and into the packages after.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/addfiles.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/debian/check.cmake)
set(CPACK_ZDEFAULT_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_ZDEFAULT_CHANGELOG ${PROJECT_BINARY_DIR}/changelog.Debian)
set(CPACK_ZDEFAULT_PREFIX ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/debian/changelog.in changelog.Debian @ONLY)
include(CPack)
