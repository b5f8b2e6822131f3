# zdefault_install_program(TARGET): a build tree and an installed prefix are moved as a whole.
function(zdefault_install_program target)
    file(RELATIVE_PATH library_folder /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN/${library_folder}")
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT zdefault)
endfunction()
