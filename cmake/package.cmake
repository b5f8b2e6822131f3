# The installed package: for find_package(zdefault 1), and for pkg-config. Nothing in it names the folder where it was
# built or the prefix it was built for.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The library, and the programs, which find it where a build tree or an installed prefix is moved as a whole.
install(TARGETS zdefault EXPORT zdefaultTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libzdefault NAMELINK_COMPONENT zdefault-dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zdefault)
install(FILES ${zdefault_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zdefault COMPONENT zdefault-dev)
# The test kit has an export of its own: who builds plugins without tests needs no Qt Test.
install(TARGETS zdefaulttesting EXPORT zdefaultTestingTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT zdefault-dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zdefault/testing)
install(FILES ${zdefault_testing_headers}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zdefault/testing COMPONENT zdefault-dev)
file(RELATIVE_PATH library_folder /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(zhost zdeploy zctl PROPERTIES INSTALL_RPATH "\$ORIGIN/${library_folder}")
install(TARGETS zhost zdeploy zctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT zdefault)
install(FILES zhost/zhost-configuration.schema.json zhost/door/zhost-door.openapi.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zdefault COMPONENT zdefault)
install(FILES zctl/zctl.bash-completion RENAME zctl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT zdefault)
# The plugins of ours: from here they are dropped, or copied, into the folder of a host.
if(TARGET znats)
    install(TARGETS znats LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/zdefault/plugins COMPONENT zdefault-nats)
    install(FILES docs/nats.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT zdefault-nats)
    install(FILES docs/pictures/cluster.svg DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs/pictures COMPONENT zdefault-nats)
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zdefault)
configure_package_config_file(cmake/zdefaultConfig.cmake.in zdefaultConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(zdefaultConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT zdefaultTargets NAMESPACE zdefault:: DESTINATION ${package_folder} COMPONENT zdefault-dev)
install(EXPORT zdefaultTestingTargets NAMESPACE zdefault:: DESTINATION ${package_folder} COMPONENT zdefault-dev)
install(FILES ${PROJECT_BINARY_DIR}/zdefaultConfig.cmake ${PROJECT_BINARY_DIR}/zdefaultConfigVersion.cmake
              cmake/zdefaultplugin.cmake cmake/zdefaultcheckplugin.cmake cmake/zdefaultlinkplugin.sh
              cmake/zdefaultplugintest.cmake
    DESTINATION ${package_folder} COMPONENT zdefault-dev)

file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
configure_file(cmake/zdefault.pc.in zdefault.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zdefault.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT zdefault-dev)

install(PROGRAMS scripts/new-plugin RENAME zdefault-new-plugin
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT zdefault-dev)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT zdefault-dev
    REGEX "/docs/((operator-guide|nats)\\.md|pictures/(page|demo|cluster).*|.*\\.1|zhost[.@].*)$" EXCLUDE)
install(FILES docs/zdefault-new-plugin.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT zdefault-dev)

# What operators need comes with the programs. The unit names /usr/bin, where Debian's package has them.
install(FILES docs/operator-guide.md docs/zhost.limits.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT zdefault)
install(DIRECTORY docs/pictures DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT zdefault
    FILES_MATCHING PATTERN "page*.png")
install(FILES docs/zctl.1 docs/zdeploy.1 docs/zhost.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT zdefault)
# systemd reads this folder below /usr and /usr/local; in Debian 12 /lib/systemd is the same one, for /lib is a link.
if(TARGET PkgConfig::libsystemd) # systemd waits for a word that the program says only with it
    install(FILES docs/zhost@.service DESTINATION lib/systemd/system COMPONENT zdefault)
endif()
