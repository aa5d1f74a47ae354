# SPDX-License-Identifier: MIT
# The board: 32-bit ARM, hard float, Debian's g++-arm-linux-gnueabihf. docs/cross-building.md tells
# how it is used.
#
#   -DNASUTIL_BOARD_ROOT=<folder>    the unpacked armhf packages, scripts/test-board makes one

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NASUTIL_BOARD_ROOT)
set(NASUTIL_BOARD_ROOT "/usr/arm-linux-gnueabihf" CACHE PATH "Root of the board's libraries")

# Libraries and headers come from the board's root only, programs from this machine only. The
# compiler has the C and the C++ library itself.
set(CMAKE_FIND_ROOT_PATH "${NASUTIL_BOARD_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CXX_FLAGS_INIT
    "-isystem ${NASUTIL_BOARD_ROOT}/usr/include/arm-linux-gnueabihf -Wno-psabi")  # notes about g++ before 7
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${NASUTIL_BOARD_ROOT}/usr/lib/arm-linux-gnueabihf")

# Programs of the board run here under emulation, the tests for one.
find_program(NASUTIL_QEMU_ARM NAMES qemu-arm-static qemu-arm)
if(NASUTIL_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      "${NASUTIL_QEMU_ARM};-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${NASUTIL_BOARD_ROOT}/usr/lib/arm-linux-gnueabihf"
  )
endif()
