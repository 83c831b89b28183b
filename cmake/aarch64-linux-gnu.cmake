# Builds for AArch64 with Debian's cross compiler and its libraries of architecture arm64, which lie
# beside the build machine's own (see debian/control and scripts/setup.sh).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# FindOpenSSL asks pkg-config first, which would answer for the build machine.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# Debian's dynamic linker for arm64 has its usual place, so qemu needs no folder to look in.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
