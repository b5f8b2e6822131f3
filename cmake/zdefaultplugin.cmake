# zdefault_add_plugin(NAME sources... [VERSION v])
#
# Makes the target NAME, or NAME.v with a version: a plugin file lib<target>.so for the loader. It has what a plugin
# needs to leave memory again: no symbol of the kind that pins a file for good (GNU unique, which each inline metatype
# id would be), nothing exported but the root, and nothing undefined.
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
        PREFIX lib
        SUFFIX .so
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    # A sanitizer's runtime is supplied by the host program, so its symbols are undefined in a plugin by design.
    if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        target_link_options(${target} PRIVATE LINKER:-z,defs)
    endif()
    target_link_libraries(${target} PRIVATE zdefault::zdefault)
endfunction()
