# The switch's processor: 32-bit big-endian PowerPC Linux, built with Debian's cross compiler
# (g++-powerpc-linux-gnu) and run on a development host through user-mode emulation (qemu-user).
#   cmake -S . -B build-ppc -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/powerpc-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)

set(HALBD_TARGET_TRIPLET powerpc-linux-gnu)
set(HALBD_TARGET_SYSROOT /usr/${HALBD_TARGET_TRIPLET}
    CACHE PATH "Root of the target's C library and libstdc++ (Debian's cross packages)")

set(CMAKE_C_COMPILER ${HALBD_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${HALBD_TARGET_TRIPLET}-g++)

# Libraries, headers and CMake packages come from the target's tree only; programs from the host.
set(CMAKE_FIND_ROOT_PATH ${HALBD_TARGET_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# CTest (and test discovery) run every target program through the emulator, which loads the
# target's dynamic loader and shared libraries from the sysroot.
find_program(HALBD_QEMU_PPC qemu-ppc)
if(HALBD_QEMU_PPC)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${HALBD_QEMU_PPC} -L ${HALBD_TARGET_SYSROOT})
endif()

# GoogleTest for the target is compiled from Debian's googletest sources with this compiler.
set(HALBD_GTEST_SOURCE_DIR /usr/src/googletest
    CACHE PATH "GoogleTest sources, built for the target with the cross compiler")
