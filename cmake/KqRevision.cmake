# KQ_REVISION: the 40-digit git revision of the source tree at configure time,
# or 40 zeros when git or the repository is not available.
set(KQ_REVISION "0000000000000000000000000000000000000000")
find_package(Git QUIET)
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse HEAD
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
    OUTPUT_VARIABLE _kq_rev OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE _kq_rev_result ERROR_QUIET)
  if(_kq_rev_result EQUAL 0 AND _kq_rev MATCHES "^[0-9a-f]+$")
    string(LENGTH "${_kq_rev}" _kq_rev_len)
    if(_kq_rev_len EQUAL 40)
      set(KQ_REVISION "${_kq_rev}")
    endif()
  endif()
endif()
message(STATUS "KQUpScale revision: ${KQ_REVISION}")
