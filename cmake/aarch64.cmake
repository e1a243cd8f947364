# Toolchain file: 64-bit ARM, with Debian's cross compiler and the packages that
# scripts/aarch64-test has unpacked; programs run in qemu's user mode.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/aarch64-root)
file(REAL_PATH ${CMAKE_SYSROOT} CMAKE_SYSROOT)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# Unpacked packages have not chosen among alternatives.
set(kova_libraries ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${kova_libraries}/blas -Wl,-rpath-link,${kova_libraries}/lapack")
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${CMAKE_SYSROOT}
    -E LD_LIBRARY_PATH=/usr/lib/aarch64-linux-gnu/blas:/usr/lib/aarch64-linux-gnu/lapack)
