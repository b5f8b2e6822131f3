# The installed package: for find_package(zdefault 1), and for pkg-config. Nothing in it names the folder where it was
# built or the prefix it was built for.
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zdefault)

configure_package_config_file(cmake/zdefaultConfig.cmake.in zdefaultConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(zdefaultConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT zdefaultTargets NAMESPACE zdefault:: DESTINATION ${package_folder} COMPONENT zdefault-dev)
install(FILES ${PROJECT_BINARY_DIR}/zdefaultConfig.cmake ${PROJECT_BINARY_DIR}/zdefaultConfigVersion.cmake
              cmake/zdefaultplugin.cmake cmake/zdefaultcheckplugin.cmake cmake/zdefaultlinkplugin.sh
    DESTINATION ${package_folder} COMPONENT zdefault-dev)

file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
configure_file(cmake/zdefault.pc.in zdefault.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zdefault.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT zdefault-dev)

install(PROGRAMS scripts/new-plugin RENAME zdefault-new-plugin
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT zdefault-dev)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT zdefault-dev
    REGEX "/docs/(operator-guide\\.md|pictures|(zctl|zdeploy)\\.1|zhost[.@].*)$" EXCLUDE)

# What operators need comes with the programs. The unit names /usr/bin, where Debian's package has them.
install(FILES docs/operator-guide.md docs/zhost.limits.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT zdefault)
install(DIRECTORY docs/pictures DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT zdefault)
install(FILES docs/zctl.1 docs/zdeploy.1 docs/zhost.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT zdefault)
if(TARGET PkgConfig::libsystemd) # systemd waits for a word that the program says only with it
    install(FILES docs/zhost@.service DESTINATION lib/systemd/system COMPONENT zdefault)
endif()
