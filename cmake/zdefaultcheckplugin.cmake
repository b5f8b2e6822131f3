# cmake -DPLUGIN=file -DNM=nm -P zdefaultcheckplugin.cmake: fails, and removes the file, if it could never be unloaded.
execute_process(COMMAND ${NM} --dynamic --defined-only --demangle ${PLUGIN}
    OUTPUT_VARIABLE symbols ERROR_VARIABLE error RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} cannot read ${PLUGIN}: ${error}")
endif()
string(REGEX MATCHALL "[0-9a-f]+ u [^\n]+" unique "${symbols}")
if(unique)
    file(REMOVE ${PLUGIN})
    list(TRANSFORM unique REPLACE "^[0-9a-f]+ u " "  ")
    string(REPLACE ";" "\n" unique "${unique}")
    message(FATAL_ERROR "${PLUGIN} could never be unloaded: GNU unique symbols pin a file in memory for good:\n"
        "${unique}\n"
        "Compile what they come from with -fno-gnu-unique: each library that is linked statically into the plugin too.")
endif()
