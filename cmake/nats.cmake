# The plugin that takes the bus to other processes: where the client of NATS is installed, and the programs are built.
set(ZDEFAULT_NATS AUTO CACHE STRING
    "Build the plugin that takes the bus to other processes: ON, OFF, or AUTO, which is where libnats is installed")
set_property(CACHE ZDEFAULT_NATS PROPERTY STRINGS AUTO ON OFF)
if(ZDEFAULT_NATS STREQUAL "AUTO" AND NOT TARGET zhost)
    return()
endif()

if(ZDEFAULT_NATS)
    find_package(PkgConfig QUIET)
    if(PKG_CONFIG_FOUND)
        pkg_check_modules(libnats QUIET IMPORTED_TARGET libnats)
    endif()
    if(TARGET PkgConfig::libnats)
        add_subdirectory(znats)
    elseif(ZDEFAULT_NATS STREQUAL "AUTO")
        message(STATUS "The plugin znats is left out: pkg-config finds no libnats (libnats-dev)")
    else()
        message(FATAL_ERROR "ZDEFAULT_NATS is ON, but pkg-config finds no libnats: install libnats-dev, or build without \
the plugin znats, by -DZDEFAULT_NATS=OFF.")
    endif()
endif()
