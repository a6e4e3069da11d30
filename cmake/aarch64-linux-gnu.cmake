# Cross build for arm64 Linux with Debian's cross compiler and the arm64
# library packages (multiarch, under /usr/lib/aarch64-linux-gnu). Programs,
# test discovery included, run under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The arm64 loader and libraries live in the ordinary multiarch folders under /.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
