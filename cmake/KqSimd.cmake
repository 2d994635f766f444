# One OBJECT library per instruction set, compiled with that set's flags only,
# so that the drivers and scalar references stay baseline code. Each present
# set defines KQ_HAVE_<ISA>=1 on kq_core, which the dispatch tables test.

function(kq_add_isa_objects isa sources)
  string(TOUPPER ${isa} ISA)
  set(flags)
  set(enabled OFF)
  if(KQ_ENABLE_SIMD AND sources)
    if(isa STREQUAL "neon" AND KQ_ARCH_ARM)
      set(enabled ON)
      if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)")
        set(flags -mfpu=neon)
      endif()
    elseif(isa STREQUAL "sse41" AND KQ_ARCH_X86)
      set(enabled ON)
      set(flags -msse4.1)
    elseif(isa STREQUAL "avx2" AND KQ_ARCH_X86)
      set(enabled ON)
      set(flags -mavx2)
    elseif(isa STREQUAL "avx512" AND KQ_ARCH_X86)
      set(enabled ON)
      set(flags -mavx2 -mavx512f -mavx512bw -mavx512vl -mavx512vbmi)
      # GCC's unmasked AVX-512 intrinsics pass an undefined vector as the
      # merge source of the masked builtin they wrap, and GCC 12 then warns
      # about its own header in every file that uses them.
      if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        list(APPEND flags -Wno-uninitialized -Wno-maybe-uninitialized)
      endif()
    endif()
  endif()
  if(NOT enabled)
    target_compile_definitions(kq_core PUBLIC KQ_HAVE_${ISA}=0)
    return()
  endif()
  add_library(kq_simd_${isa} OBJECT ${sources})
  target_include_directories(kq_simd_${isa} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src
                             ${CMAKE_CURRENT_SOURCE_DIR}/include)
  target_compile_options(kq_simd_${isa} PRIVATE ${flags})
  kq_target_flags(kq_simd_${isa})
  # The AVX2 and AVX-512 chroma runs inline a whole pass per strength into one
  # function; AddressSanitizer's poisoning of every inlined local's scope then
  # takes most of a sanitizer build (GCC 12: chroma_avx2.cpp 466 s with it,
  # 182 s without). Their loads and stores stay checked.
  if("address" IN_LIST KQ_SANITIZER AND isa MATCHES "^avx")
    target_compile_options(kq_simd_${isa} PRIVATE -fno-sanitize-address-use-after-scope)
  endif()
  target_sources(kq_core PRIVATE $<TARGET_OBJECTS:kq_simd_${isa}>)
  target_compile_definitions(kq_core PUBLIC KQ_HAVE_${ISA}=1)
endfunction()
