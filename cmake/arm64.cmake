# 64-bit Arm, by Debian's cross compiler. `scripts/setup arm64` brings the compiler, the emulator and the libraries.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Libraries from there alone, programs (the protocol compiler, ccache) from the machine that builds.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_CURRENT_LIST_DIR}/../build/arm64-libraries")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# What starts every program that was built: ctest's, those that tests start, and those of scripts.
find_program(VELMORA_ARM64_EMULATOR qemu-aarch64-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${VELMORA_ARM64_EMULATOR};-L;/usr/aarch64-linux-gnu")
