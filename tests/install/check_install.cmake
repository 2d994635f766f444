# Installs the build tree into a scratch prefix, then configures, builds and
# runs a small consumer against it: through find_package(KQUpScale), through
# CMake's pkg-config module, and with the compiler alone on the flags that
# `pkg-config --cflags --libs` gives (no LD_LIBRARY_PATH: the .pc carries
# the rpath). Each consumer must print only the version on standard output;
# the library's information lines go to standard error, and only with
# KQ_LOG=info. With TOOL set, the kqupscale tool must be installed and run.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()

if(TOOL)
  execute_process(COMMAND ${prefix}/bin/kqupscale --version RESULT_VARIABLE rc
    OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "^KQUpScale v1\\.3\\.0 \\(")
    message(FATAL_ERROR "installed kqupscale does not run: ${rc} ${out} ${err}")
  endif()
endif()

set(version_line "^KQUpScale v1\\.3\\.0 \\([^\n]*\\)\n$")
function(check_consumer mode exe)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH --unset=KQ_LOG ${exe}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "${version_line}" OR NOT err STREQUAL "")
    message(FATAL_ERROR "consumer (${mode}) failed (${rc}): out '${out}' err '${err}'")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E env KQ_LOG=info ${exe}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "${version_line}" OR
     NOT err MATCHES "^I/Orvane: KQUpScale v1\\.3\\.0 \\(")
    message(FATAL_ERROR "consumer (${mode}) with KQ_LOG=info: out '${out}' err '${err}'")
  endif()
  message(STATUS "consumer (${mode}): ${out}")
endfunction()

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
  check_consumer(${mode} ${bdir}/kq_consumer)
endforeach()

find_program(PKG_CONFIG_EXE pkg-config)
file(GLOB_RECURSE pc_file ${prefix}/*/KQUpScale.pc)
if(NOT PKG_CONFIG_EXE OR NOT pc_file)
  message(FATAL_ERROR "pkg-config (${PKG_CONFIG_EXE}) or the installed .pc (${pc_file}) missing")
endif()
get_filename_component(pc_dir ${pc_file} DIRECTORY)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
    ${PKG_CONFIG_EXE} --cflags --libs KQUpScale
  RESULT_VARIABLE rc OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND ${CC} ${CONSUMER_DIR}/consumer/main.c ${flags}
    -o ${WORK_DIR}/kq_consumer_cc RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer (cc with pkg-config flags: ${flags}) does not build")
endif()
check_consumer(cc ${WORK_DIR}/kq_consumer_cc)
