# Installs the build tree into a scratch prefix, then configures, builds and
# runs a small consumer against it, once through find_package(KQUpScale) and
# once through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()

foreach(mode cmake pkgconfig)
  set(bdir ${WORK_DIR}/consumer-${mode})
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_DIR}/consumer -B ${bdir}
      -G ${CMAKE_GENERATOR} -DCMAKE_PREFIX_PATH=${prefix} -DKQ_CONSUMER_MODE=${mode}
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer (${mode}) does not configure")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${bdir} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer (${mode}) does not build")
  endif()
  execute_process(COMMAND ${bdir}/kq_consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "(^|\n)KQUpScale v1\\.3\\.0 \\(")
    message(FATAL_ERROR "consumer (${mode}) failed: ${out}")
  endif()
  message(STATUS "consumer (${mode}): ${out}")
endforeach()
