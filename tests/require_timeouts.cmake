# Every ctest entry must have a TIMEOUT: without one, a test that hangs (under
# qemu with a broken cross environment, say) stalls the whole run instead of
# failing. Called at the end of each CMakeLists.txt that adds tests.
function(kq_require_timeouts)
  get_property(tests DIRECTORY PROPERTY TESTS)
  foreach(test IN LISTS tests)
    get_test_property(${test} TIMEOUT timeout)
    if(NOT timeout)
      message(FATAL_ERROR "test ${test} has no TIMEOUT (set_tests_properties)")
    endif()
  endforeach()
endfunction()
