# Builds for arm64 devices with Debian's cross compiler (g++-aarch64-linux-gnu);
# whatever the build runs, the unit tests and their discovery among them, runs
# under user-mode emulation (qemu-user-static), so no binfmt_misc set-up is
# needed: cmake -B build-arm64 -S . -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
# GoogleTest's sources are built with the C compiler's checks too.
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Debian's cross libraries live under this root; the emulator finds the
# dynamic loader and the shared libraries of a dynamic test program there.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
find_program(KAVSETUP_QEMU qemu-aarch64-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KAVSETUP_QEMU} -L /usr/aarch64-linux-gnu)

# CPack would name the building machine's architecture.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
