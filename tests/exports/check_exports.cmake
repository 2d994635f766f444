# Fails unless the shared library's dynamic symbol table defines exactly the
# three KQUpScale_ functions among the library's own symbols (symbols of the
# C/C++ runtime, versioned GLIBC/GCC/CXXABI entries, are not ours), and
# unless it imports nothing that can throw: no operator new, no exception
# raised or thrown by the C++ runtime. Nothing a call does can then throw
# into the noexcept exported functions or out of a worker thread.
if(NOT NM OR NOT LIB)
  message(FATAL_ERROR "usage: -DNM=<nm> -DLIB=<libKQUpScale.so>")
endif()
# The lines of `nm -D <which>` on the library, in `var`.
function(dynamic_symbols which var)
  execute_process(COMMAND ${NM} -D ${which} ${LIB} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIB}")
  endif()
  string(REPLACE "\n" ";" out "${out}")
  set(${var} "${out}" PARENT_SCOPE)
endfunction()

dynamic_symbols(--defined-only lines)
set(found)
set(bad)
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) (.+)$")
    set(kind "${CMAKE_MATCH_1}")
    set(sym "${CMAKE_MATCH_2}")
    if(sym MATCHES "@" OR kind STREQUAL "A")
      continue()  # versioned runtime symbols and version nodes
    endif()
    if(sym MATCHES "^KQUpScale_(GetVersion|ScaleImage|ScaleImageFromROI)$")
      list(APPEND found "${sym}")
    elseif(sym MATCHES "^(_init|_fini|__bss_start|_edata|_end|__end__|__bss_end__|__bss_start__|_bss_end__)$")
      continue()  # linker-provided markers
    else()
      list(APPEND bad "${sym}")
    endif()
  endif()
endforeach()
list(LENGTH found nfound)
if(bad)
  message(FATAL_ERROR "unexpected exported symbols: ${bad}")
endif()
if(NOT nfound EQUAL 3)
  message(FATAL_ERROR "expected the three KQUpScale_ functions, found: ${found}")
endif()

dynamic_symbols(--undefined-only lines)
set(throwing)
foreach(line IN LISTS lines)
  # _Znw* / _Zna*: operator new and new[]; __cxa_throw, __cxa_allocate_exception
  # and the std::__throw_* helpers: anything that raises an exception.
  if(line MATCHES " U (_Znw[jm][^ ]*|_Zna[jm][^ ]*|__cxa_throw[^ ]*|__cxa_allocate_exception[^ ]*|_ZSt[0-9]+__throw_[^ ]*)$")
    list(APPEND throwing "${CMAKE_MATCH_1}")
  endif()
endforeach()
if(throwing)
  message(FATAL_ERROR "the library imports allocating or throwing runtime functions: ${throwing}")
endif()
message(STATUS "exports OK: ${found}; nothing imported can throw")
