# Compiler flags shared by every target of the project.
#
# Results must be the same bytes on every compiler and CPU, so floating-point
# contraction (fused multiply-add) is off everywhere and no fast-math mode is
# ever used.

set(KQ_COMMON_FLAGS -ffp-contract=off -fno-fast-math -fvisibility=hidden
    -fvisibility-inlines-hidden)
set(KQ_WARNING_FLAGS -Wall -Wextra -Wno-unused-parameter)
if(KQ_WERROR)
  list(APPEND KQ_WARNING_FLAGS -Werror)
endif()

# Every sanitizer report ends the process (-fno-sanitize-recover), so a
# report fails the test that made it instead of scrolling past in its log.
if(KQ_SANITIZER)
  string(REPLACE ";" "," _kq_san "${KQ_SANITIZER}")
  add_compile_options(-fsanitize=${_kq_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_kq_san})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Clang links its sanitizer runtimes statically into executables only,
    # which leaves the shared library (linked with --no-undefined) without
    # them; the shared runtimes serve both, found through the build rpath.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
                    OUTPUT_VARIABLE _kq_san_dir OUTPUT_STRIP_TRAILING_WHITESPACE)
    add_link_options(-shared-libsan)
    list(APPEND CMAKE_BUILD_RPATH ${_kq_san_dir})
  endif()
endif()

# The fuzz targets steer by coverage of the library's code: every object is
# built with libFuzzer's instrumentation (the targets link its runtime).
if(KQ_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link -fno-sanitize-coverage=trace-cmp)
endif()

function(kq_target_flags target)
  target_compile_options(${target} PRIVATE ${KQ_COMMON_FLAGS} ${KQ_WARNING_FLAGS})
endfunction()
