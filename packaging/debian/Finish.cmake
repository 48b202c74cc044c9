# Adds to the folders that cpack has filled what Debian expects of packages. cpack runs this before it packs them.

set(times --no-dereference)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    list(APPEND times --date=@$ENV{SOURCE_DATE_EPOCH})
endif()

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(GLOB packages LIST_DIRECTORIES true RELATIVE ${CPACK_TEMPORARY_DIRECTORY} ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(package IN LISTS packages)
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${package})

    # The documents that every package has.
    set(doc ${root}/usr/share/doc/${package})
    file(COPY ${CPACK_VEL_DEBIAN}/copyright DESTINATION ${doc})
    configure_file(${CPACK_VEL_DEBIAN}/changelog ${doc}/changelog.Debian COPYONLY)
    file(GLOB compressed ${root}/usr/share/man/*/* ${doc}/changelog.Debian)
    run(gzip --best --no-name ${compressed})

    # Debian's zsh looks for completions of packages elsewhere.
    if(EXISTS ${root}/usr/share/zsh/site-functions)
        file(RENAME ${root}/usr/share/zsh/site-functions ${root}/usr/share/zsh/vendor-completions)
    endif()

    # The packages that its libraries come from, also those made here. cpack can call dpkg-shlibdeps by itself, but then finds
    # no dependencies between packages of one run, and calls ldconfig in a script where Debian wants a trigger.
    file(GLOB binaries ${root}/usr/bin/* ${root}/usr/lib/*/*.so.*)
    if(binaries)
        file(MAKE_DIRECTORY ${root}/DEBIAN) # by which dpkg-shlibdeps knows a package's folder
        execute_process(COMMAND dpkg-shlibdeps -O -l${CPACK_VEL_LIBRARIES} ${binaries}
            WORKING_DIRECTORY ${CPACK_VEL_SHLIBS} OUTPUT_VARIABLE depends OUTPUT_STRIP_TRAILING_WHITESPACE
            COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE_RECURSE ${root}/DEBIAN)
        string(REPLACE "shlibs:Depends=" "" depends "${depends}")
        string(TOUPPER ${package} PACKAGE)
        string(JOIN ", " CPACK_DEBIAN_${PACKAGE}_PACKAGE_DEPENDS ${CPACK_DEBIAN_${PACKAGE}_PACKAGE_DEPENDS} ${depends})
    endif()

    run(chmod --recursive u=rwX,go=rX ${root})
    run(find ${root} -exec touch ${times} {} +)
endforeach()
