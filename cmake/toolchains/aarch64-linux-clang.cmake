# The aarch64 target of aarch64-linux.cmake built with clang instead of GCC,
# as the Android NDK builds arm64-v8a: Debian's aarch64 cross sysroot and
# binutils, run under qemu-aarch64.
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-linux.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=bfd")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=bfd")
