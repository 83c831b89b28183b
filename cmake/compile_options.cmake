# Options that every target of the project is compiled with.

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wcast-qual
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    # Reports and debug information carry paths: keep them the same in every checkout, wherever the
    # build is. The last matching map wins, and the build may lie within the sources.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Hardening. Sanitizers check more than _FORTIFY_SOURCE does and need the plain functions for it.
add_compile_options(-fstack-protector-strong)
if(TESRA_SANITIZERS)
    add_compile_options(
        -fsanitize=${TESRA_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TESRA_SANITIZERS})
else()
    add_compile_options(
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    add_compile_options(-fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    # The linked files carry the mark only where the C library's start files do.
    add_compile_options(-mbranch-protection=standard)
endif()
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

# Makes a target a shared object for C programs: written in C++, linked without the C++ runtime, and
# exporting only the names in its version script.
function(tesra_c_abi_library target version_script)
    target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${version_script}")
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        LINKER_LANGUAGE C
        LINK_DEPENDS ${version_script})
    # The C driver links no C++ runtime, and CMake must not add it because of the sources' language:
    # an accidental use of it fails to link.
    set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "" PARENT_SCOPE)
    if(NOT TESRA_SANITIZERS)
        target_link_options(${target} PRIVATE LINKER:--no-undefined)
    endif()
endfunction()
