# Cross-compiles for 64-bit Arm cards on any Debian 12 machine, against the libraries that packaging/arm64/sysroot
# unpacked, and runs the results under user-mode emulation.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

cmake_path(SET sysroot NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-arm64")
set(CMAKE_SYSROOT ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(NYX_QEMU qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${NYX_QEMU} -L ${sysroot})

# gRPC's package asks pkg-config for some of its libraries.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})
set(ENV{PKG_CONFIG_LIBDIR} ${sysroot}/usr/lib/aarch64-linux-gnu/pkgconfig:${sysroot}/usr/share/pkgconfig)
