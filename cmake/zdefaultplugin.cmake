# The version of the interfaces as a set: it goes up when plugins that were built before can no longer work with them.
set(zdefault_INTERFACES 1)

set(zdefault_plugin_folder ${CMAKE_CURRENT_LIST_DIR})

# zdefault_add_plugin(NAME sources... [VERSION v])
#
# Makes the target NAME, or NAME.v with a version: a plugin file lib<target>.so for the loader. It tells the loader for
# which interfaces it was built, and it has what a plugin needs to leave memory again: no symbol of the kind that pins a
# file for good (GNU unique, which each inline metatype id would be), no destructor that a thread would run at its end,
# nothing exported but the root, and nothing undefined. What is not so ends the build, with a word on what to do.
function(zdefault_add_plugin name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "VERSION" "")
    if(NOT arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "zdefault_add_plugin(${name}): name at least one source file.")
    endif()
    set(target ${name})
    if(arg_VERSION)
        set(target ${name}.${arg_VERSION})
    endif()

    add_library(${target} MODULE ${arg_UNPARSED_ARGUMENTS})
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        AUTOMOC_MOC_OPTIONS -Mzdefault-interfaces=${zdefault_INTERFACES}
        PREFIX lib
        SUFFIX .so
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        RULE_LAUNCH_LINK "sh ${zdefault_plugin_folder}/zdefaultlinkplugin.sh ${target}")
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    # A sanitizer's runtime is supplied by the host program, so its symbols are undefined in a plugin by design.
    if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        target_link_options(${target} PRIVATE LINKER:-z,defs)
    endif()
    target_link_libraries(${target} PRIVATE zdefault::zdefault)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
        COMMAND ${CMAKE_COMMAND} -DPLUGIN=$<TARGET_FILE:${target}> -DNM=${CMAKE_NM} -DREADELF=${CMAKE_READELF}
                -P ${zdefault_plugin_folder}/zdefaultcheckplugin.cmake)
endfunction()
