# Run by cpack between installing and packing: adds the files that Debian requires besides the
# installed ones.
file(GLOB components LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(component IN LISTS components)
    get_filename_component(name ${component} NAME)
    string(TOUPPER ${name} name)
    configure_file(${CPACK_RESOURCE_FILE_LICENSE}
        ${component}/usr/share/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME}/copyright COPYONLY)
    file(GLOB_RECURSE archives ${component}/usr/lib/*.a)
    if(archives)
        execute_process(COMMAND strip --strip-debug ${archives} COMMAND_ERROR_IS_FATAL ANY)
    endif()
    file(GLOB pages ${component}/usr/share/man/man1/*.1
                    ${component}/usr/share/man/man3/*.3)
    if(pages)
        execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
