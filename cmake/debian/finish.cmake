# What cpack cannot say is put into the packages that it has made: that packages of several architectures stand side by
# side, and that a trigger sees to ldconfig, for which cpack writes scripts.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}")
    endif()
endfunction()

foreach(file ${CPACK_PACKAGE_FILES})
    if(NOT file MATCHES "\\.deb$")
        continue()
    endif()
    set(multi_arch same)
    if(file MATCHES "/zdefault_") # programs, which serve whoever calls them
        set(multi_arch foreign)
    endif()

    set(folder ${file}.folder)
    file(REMOVE_RECURSE ${folder})
    run(dpkg-deb --raw-extract ${file} ${folder})
    file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
    file(READ ${folder}/DEBIAN/control control)
    string(STRIP "${control}" control)
    file(WRITE ${folder}/DEBIAN/control "${control}\nMulti-Arch: ${multi_arch}\n")
    run(chmod -R u=rwX,go=rX ${folder}) # whatever umask somebody has
    run(dpkg-deb --root-owner-group -Zxz --build ${folder} ${file})
endforeach()
