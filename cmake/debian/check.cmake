# Before cpack begins: it would make packages that ask for no library, or have the library in the wrong folder.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return()
endif()

foreach(program_of_package file:file dpkg-shlibdeps:dpkg-dev gzip:gzip)
    string(REGEX REPLACE ":.*" "" program ${program_of_package})
    string(REGEX REPLACE ".*:" "" package ${program_of_package})
    execute_process(COMMAND ${program} --version RESULT_VARIABLE status OUTPUT_QUIET)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "There is no program ${program}, by which Debian's packages are made: install ${package}.")
    endif()
endforeach()
if(NOT CPACK_ZDEFAULT_PREFIX STREQUAL CPACK_PACKAGING_INSTALL_PREFIX)
    message(FATAL_ERROR "Debian's packages are made in a build for /usr, and this one is for ${CPACK_ZDEFAULT_PREFIX}: \
use the preset \"debian\".")
endif()
