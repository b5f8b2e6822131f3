# The version of all interfaces together: it goes up when plugins that were built before cannot work with them any more.
set(zdefault_INTERFACES 1)

# The function may be called from any folder of a build, also from folders that do not see the variables of this one.
set_property(GLOBAL PROPERTY zdefault_interfaces ${zdefault_INTERFACES})
set_property(GLOBAL PROPERTY zdefault_plugin_folder ${CMAKE_CURRENT_LIST_DIR})

# zdefault_add_plugin(NAME sources... [VERSION v])
#
# Makes the target NAME, or NAME.v with a version: a plugin file lib<target>.so for the loader. The file tells the loader
# for which version of the interfaces it was built. It can be unloaded again: it has no symbol that pins a file in memory
# (GNU unique, as each inline metatype id would be), no destructor that a thread would run at its end, exports nothing but
# the root, and has no undefined symbol. Otherwise the build fails, with a message that says what to do.
function(zdefault_add_plugin name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "VERSION" "")
    if(NOT arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "zdefault_add_plugin(${name}): name at least one source file.")
    endif()
    if(NOT Qt5Core_VERSION_MAJOR) # else moc would not run, and the message about that is easily missed
        message(FATAL_ERROR "zdefault_add_plugin(${name}): call find_package(Qt5 5.15 REQUIRED COMPONENTS Core) first, \
in this folder or in one above.")
    endif()
    set(target ${name})
    if(arg_VERSION)
        set(target ${name}.${arg_VERSION})
    endif()

    get_property(interfaces GLOBAL PROPERTY zdefault_interfaces)
    get_property(folder GLOBAL PROPERTY zdefault_plugin_folder)
    add_library(${target} MODULE ${arg_UNPARSED_ARGUMENTS})
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        AUTOMOC_MOC_OPTIONS -Mzdefault-interfaces=${interfaces}
        PREFIX lib
        SUFFIX .so
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        RULE_LAUNCH_LINK "sh ${folder}/zdefaultlinkplugin.sh ${target}")
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    # A sanitizer's runtime is supplied by the host program, so its symbols are undefined in a plugin by design.
    if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        target_link_options(${target} PRIVATE LINKER:-z,defs)
    endif()
    target_link_libraries(${target} PRIVATE zdefault::zdefault)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
        COMMAND ${CMAKE_COMMAND} -DPLUGIN=$<TARGET_FILE:${target}> -DNM=${CMAKE_NM} -DREADELF=${CMAKE_READELF}
                -P ${folder}/zdefaultcheckplugin.cmake)
endfunction()
