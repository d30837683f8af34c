# Cross-compiling for AArch64 with Debian's compiler and the libraries that scripts/make_arm64_root.sh unpacks.
# What is built runs here under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/arm64/root)
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu)
  message(FATAL_ERROR "There are no AArch64 libraries in ${CMAKE_SYSROOT}; ./dev cross makes them")
endif()

# Programs are this machine's, all else comes from the root.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR}
  "${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

# What the libraries themselves are linked to; found by qemu as by a real machine, below the root.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu)
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})
set(CMAKE_MODULE_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;${CMAKE_SYSROOT})
