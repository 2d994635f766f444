# The armv7 target of armv7a-linux-softfp.cmake built with clang instead of
# GCC, as the Android NDK builds armeabi-v7a: the same flags, Debian's armel
# cross sysroot and binutils, run under qemu-arm. It keeps the NEON sources
# compiling (and their bytes checked) under the compiler the product ships
# with.
include(${CMAKE_CURRENT_LIST_DIR}/armv7a-linux-softfp.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET arm-linux-gnueabi)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabi)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=bfd")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=bfd")
