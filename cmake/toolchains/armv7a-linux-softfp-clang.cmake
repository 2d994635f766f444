# The armv7 target of armv7a-linux-softfp.cmake built with clang instead of
# GCC, as the Android NDK builds armeabi-v7a: the same flags, Debian's armel
# cross sysroot and binutils, run under qemu-arm. It keeps the NEON sources
# compiling (and their bytes checked) under the compiler the product ships
# with.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET arm-linux-gnueabi)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabi)
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mthumb -mfpu=neon -mfloat-abi=softfp")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mthumb -mfpu=neon -mfloat-abi=softfp")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=bfd")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=bfd")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -cpu cortex-a15 -L /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
