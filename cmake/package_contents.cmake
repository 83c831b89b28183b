# Run by cpack between installation and packing: what belongs into a Debian package alone.

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
    set(doc ${root}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    file(COPY ${CPACK_TESRA_PACKAGING}/copyright DESTINATION ${doc})
    configure_file(${CPACK_TESRA_PACKAGING}/changelog.in ${doc}/changelog @ONLY)
    file(GLOB texts ${doc}/changelog ${root}/man/man*/*)
    execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
