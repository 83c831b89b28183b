# What `cmake --install` puts in place, and debian/*.install sorts into packages.

include(CMakePackageConfigHelpers)

set(TESRA_TRACE_OWNER root CACHE STRING "Owner of the trace file: whoever the daemon runs as")
set(TESRA_TRACE_GROUP adm CACHE STRING "Group of the trace file")
set(TESRA_TRACE_MODE 0640 CACHE STRING "Mode of the trace file")
mark_as_advanced(TESRA_TRACE_OWNER TESRA_TRACE_GROUP TESRA_TRACE_MODE)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tesra_common)

# The dynamic linker searches /usr by itself. Under any other prefix the tool and the library find
# what is installed with them from where they lie, and the linker of a program finds it, too.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/(usr)?$")
    file(RELATIVE_PATH libdir_from_bindir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(tesra_common PROPERTIES INSTALL_RPATH "\$ORIGIN")
    set_target_properties(tesra PROPERTIES INSTALL_RPATH "\$ORIGIN/${libdir_from_bindir}")
endif()

if(NOT TESRA_PLATFORM_LOG_LIBRARY)
    install(TARGETS platform_log LIBRARY COMPONENT platform_log NAMELINK_SKIP)
endif()

install(TARGETS tesra_common
    LIBRARY COMPONENT library NAMELINK_COMPONENT development)
install(FILES libtesra_common/include/tesra_common.h COMPONENT development
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

configure_package_config_file(libtesra_common/tesra_commonConfig.cmake.in
    tesra_commonConfig.cmake.generated INSTALL_DESTINATION ${package_dir}
    PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR NO_CHECK_REQUIRED_COMPONENTS_MACRO)
file(GENERATE OUTPUT tesra_commonConfig.cmake
    INPUT ${PROJECT_BINARY_DIR}/tesra_commonConfig.cmake.generated)
write_basic_package_version_file(tesra_commonConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tesra_commonConfig.cmake
        ${PROJECT_BINARY_DIR}/tesra_commonConfigVersion.cmake
    COMPONENT development DESTINATION ${package_dir})

# Relative to where the file lies, so that the whole can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
configure_file(libtesra_common/tesra_common.pc.in tesra_common.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tesra_common.pc COMPONENT development
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS tesra RUNTIME COMPONENT tools)

# The header's comments are the manual. A build without Python has no pages.
find_package(Python3 COMPONENTS Interpreter)
if(Python3_FOUND)
    set(functions tesra_base64_decode tesra_base64_encode tesra_dump tesra_free_cert_data
        tesra_get_cert_count tesra_get_cert_data tesra_hex_decode tesra_hex_encode tesra_trace)
    list(TRANSFORM functions PREPEND ${PROJECT_BINARY_DIR}/man/ OUTPUT_VARIABLE pages)
    list(TRANSFORM pages APPEND .3)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
    file(GLOB examples libtesra_common/examples/*.c)
    add_custom_command(OUTPUT ${pages}
        COMMAND Python3::Interpreter libtesra_common/man_pages.py
            libtesra_common/include/tesra_common.h libtesra_common/examples ${PROJECT_VERSION}
            ${PROJECT_BINARY_DIR}/man
        DEPENDS libtesra_common/man_pages.py libtesra_common/include/tesra_common.h ${examples}
            CHANGELOG.md
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
    add_custom_target(man_pages ALL DEPENDS ${pages})
    install(FILES ${pages} COMPONENT development DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
endif()

# The names carry no number: libraries of several sonames share the one trace file.
file(STRINGS libtesra_common/include/tesra_common.h TESRA_TRACE_FILE
    REGEX "#define TESRA_TRACE_FILE ")
string(REGEX REPLACE ".*\"(.*)\".*" "\\1" TESRA_TRACE_FILE ${TESRA_TRACE_FILE})
configure_file(libtesra_common/miraxlog.logrotate.in miraxlog.logrotate @ONLY)
configure_file(libtesra_common/miraxlog.tmpfiles.in miraxlog.tmpfiles @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/miraxlog.logrotate COMPONENT library
    DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/logrotate.d RENAME libtesra-common)
install(FILES ${PROJECT_BINARY_DIR}/miraxlog.tmpfiles COMPONENT library
    DESTINATION lib/tmpfiles.d RENAME libtesra-common.conf)
