# Cross build for 32-bit arm Linux (hard-float ABI, what armeabi-v7a phones
# run) with Debian's cross compiler and the armhf library packages
# (multiarch, under /usr/lib/arm-linux-gnueabihf). Programs, test discovery
# included, run under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# The armhf loader and libraries live in the ordinary multiarch folders under /.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
