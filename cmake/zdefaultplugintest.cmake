# zdefault_add_plugin_test(PLUGIN sources...)
#
# Makes the program test_PLUGIN, which tests a plugin that zdefault_add_plugin has made. It is built with the test kit, and
# with PLUGIN_FILE defined as the path of the plugin's file. If the build has testing enabled, it is a test of that name.
function(zdefault_add_plugin_test plugin)
    if(NOT ARGN)
        message(FATAL_ERROR "zdefault_add_plugin_test(${plugin}): name at least one source file.")
    endif()
    if(NOT TARGET zdefault::testing)
        message(FATAL_ERROR "zdefault_add_plugin_test(${plugin}): there is no test kit: call find_package(zdefault 1 \
REQUIRED COMPONENTS testing) first, or set ZDEFAULT_TESTING where the library is part of the build.")
    endif()
    if(NOT TARGET ${plugin})
        message(FATAL_ERROR "zdefault_add_plugin_test(${plugin}): there is no plugin ${plugin}: call \
zdefault_add_plugin first.")
    endif()

    set(test test_${plugin})
    add_executable(${test} ${ARGN})
    set_target_properties(${test} PROPERTIES AUTOMOC ON)
    target_compile_definitions(${test} PRIVATE PLUGIN_FILE="$<TARGET_FILE:${plugin}>")
    target_link_libraries(${test} PRIVATE zdefault::testing)
    add_dependencies(${test} ${plugin})
    add_test(NAME ${test} COMMAND ${test})
endfunction()
