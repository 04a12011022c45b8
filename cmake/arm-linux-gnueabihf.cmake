# Toolchain file for a 32-bit ARM camera, as Debian's cross compiler has it: 4-byte pointers, unsigned
# char, hard float. For another chip copy it, and name its SDK's compiler and sysroot. The flags of
# the processor (-mcpu=...) go into CMAKE_CXX_FLAGS_INIT; the emulator is for the tests alone.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_FIND_ROOT_PATH})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
