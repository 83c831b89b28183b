# Debian packages, made by cpack: one for each component of install.cmake. The stand-in for the
# platform's log has a package of its own, whose place the platform's package takes where there is
# one; both could not be installed if the library's package held the stand-in.

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_NAME libtesra-common)
set(CPACK_PACKAGE_CONTACT "libtesra_common maintainers <maintainers@libtesra-common.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # or it would be the first line of each description
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/libtesra_common ${PROJECT_BINARY_DIR}/platform_log)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_contents.cmake)
string(TIMESTAMP CPACK_TESRA_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(CPACK_TESRA_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)

set(CPACK_COMPONENTS_ALL library development tools)
if(NOT TESRA_PLATFORM_LOG_LIBRARY)
    list(APPEND CPACK_COMPONENTS_ALL platform_log)
    set(platform_log "libplatform-log1 (>= 1)")
elseif(IS_ABSOLUTE ${TESRA_PLATFORM_LOG_LIBRARY})
    # Where no package owns it, nothing can be said of it as a dependency.
    get_filename_component(platform_folder ${TESRA_PLATFORM_LOG_LIBRARY} DIRECTORY)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${platform_folder})
endif()
set(library "libtesra-common9 (= ${PROJECT_VERSION})")

macro(tesra_package component name section description)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
    string(REPLACE ";" ", " CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${ARGN}")
endmacro()

tesra_package(library libtesra-common9 libs
    "X.509 certificate chains, codecs and diagnostics
Reads the certificates of a PEM chain in memory into records of texts, converts
bytes to and from Base64 and hexadecimal, and reports what it does to the
platform's log and to a trace file."
    ${platform_log})
tesra_package(development libtesra-common-dev libdevel
    "X.509 certificate chains, codecs and diagnostics - development files
The header, the manual pages, and what pkg-config and CMake need to find
libtesra_common."
    ${library} libc6-dev)
tesra_package(tools tesra-tools utils
    "X.509 certificate chains, codecs and diagnostics - command line
The program tesra does on the command line what libtesra_common does for
programs."
    ${library})
tesra_package(platform_log libplatform-log1 libs
    "stand-in for the platform's diagnostic log
Hands the reports that the platform's own library would take to syslog. It lets
libtesra_common work on machines that are not the platform.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_SUGGESTS logrotate)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${CPACK_TESRA_PACKAGING}/library/postinst ${CPACK_TESRA_PACKAGING}/library/postrm
    ${CPACK_TESRA_PACKAGING}/library/conffiles ${CPACK_TESRA_PACKAGING}/triggers)
set(CPACK_DEBIAN_PLATFORM_LOG_PACKAGE_CONTROL_EXTRA ${CPACK_TESRA_PACKAGING}/triggers)

include(CPack)
