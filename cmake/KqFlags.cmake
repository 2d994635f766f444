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

if(KQ_SANITIZER)
  string(REPLACE ";" "," _kq_san "${KQ_SANITIZER}")
  add_compile_options(-fsanitize=${_kq_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_kq_san})
endif()

function(kq_target_flags target)
  target_compile_options(${target} PRIVATE ${KQ_COMMON_FLAGS} ${KQ_WARNING_FLAGS})
endfunction()
