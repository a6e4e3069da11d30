# Cross build for 32-bit arm Linux (hard-float ABI, what armeabi-v7a phones
# run) with Debian's cross compiler. The armhf libraries come unpacked under
# SEG_ARMHF_ROOT (cmake/armhf-sysroot.sh), not installed on the machine;
# programs, test discovery included, run under user-mode emulation with that
# folder as their root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SEG_ARMHF_ROOT)

set(CMAKE_FIND_ROOT_PATH ${SEG_ARMHF_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(_armhf_link "")
foreach(dir ${SEG_ARMHF_ROOT}/lib/arm-linux-gnueabihf ${SEG_ARMHF_ROOT}/usr/lib/arm-linux-gnueabihf)
  string(APPEND _armhf_link " -Wl,-rpath-link,${dir}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_armhf_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_armhf_link}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${SEG_ARMHF_ROOT})
