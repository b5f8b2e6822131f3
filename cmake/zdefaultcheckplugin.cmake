# cmake -DPLUGIN=file -DNM=nm -DREADELF=readelf -P zdefaultcheckplugin.cmake: fails, and removes the file, if it could
# never be unloaded.

# Sets `result` to the output of COMMAND... for the file.
function(read_plugin result)
    execute_process(COMMAND ${ARGN} ${PLUGIN} OUTPUT_VARIABLE output ERROR_VARIABLE error RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${ARGV1} cannot read ${PLUGIN}: ${error}")
    endif()
    set(${result} "${output}" PARENT_SCOPE)
endfunction()

function(refuse reason)
    file(REMOVE ${PLUGIN})
    message(FATAL_ERROR "${PLUGIN} could never be unloaded: ${reason}")
endfunction()

read_plugin(symbols ${NM} --dynamic --demangle)
string(REGEX MATCHALL "[0-9a-f]+ u [^\n]+" unique "${symbols}")
if(unique)
    list(TRANSFORM unique REPLACE "^[0-9a-f]+ u " "  ")
    string(REPLACE ";" "\n" unique "${unique}")
    refuse("GNU unique symbols pin a file in memory for good:\n${unique}\n\
Compile what they come from with -fno-gnu-unique: each library that is linked statically into the plugin too.")
endif()
if(symbols MATCHES " __cxa_thread_atexit(_impl)?[@\n]")
    refuse("a thread_local with a destructor pins a file in memory, as long as a thread lives that has used it.\n\
Make it one without a destructor, such as a number, or have the root object keep what belongs to a thread, by the \
thread's id and behind a lock. It may come from a library that is linked statically into the plugin.")
endif()

read_plugin(dynamic ${READELF} --dynamic --wide)
if(dynamic MATCHES "FLAGS_1[^\n]*NODELETE")
    refuse("-z nodelete pins a file in memory for good.\n\
Take it out of the options with which plugins are linked, such as CMAKE_MODULE_LINKER_FLAGS or LDFLAGS.")
endif()
