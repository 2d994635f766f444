# Installs the bindings' components into a scratch prefix beside a copy of
# the shared library, then loads them from there with no search path for
# libraries: the module through PYTHONPATH=<prefix>/<python dir>, the jar
# from share/java with java.library.path=<prefix>/<libdir>. Each must find
# libKQUpScale in <prefix>/<libdir> through its install rpath.
# Only the bindings' components are installed: the library's own install
# step writes the pkg-config file in the build tree, and the install test in
# tests/ may be running it at the same time.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
foreach(component ${COMPONENTS})
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
                          --component ${component}
    RESULT_VARIABLE rc OUTPUT_QUIET)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmake --install --component ${component} failed")
  endif()
endforeach()
file(COPY ${LIBRARY} DESTINATION ${prefix}/${LIBDIR} FOLLOW_SYMLINK_CHAIN)
get_filename_component(soname ${LIBRARY} NAME)
string(REPLACE "." "\\." soname_re ${soname})
get_filename_component(installed ${prefix}/${LIBDIR}/${soname} REALPATH)

# run(what command...): runs with the dynamic loader's trace; the command
# must print the version and have loaded the library from the prefix.
function(run what)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH LD_DEBUG=libs ${ARGN}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "^KQUpScale v1\\.3\\.0 \\(")
    message(FATAL_ERROR "installed ${what} does not run (${rc}): ${out}")
  endif()
  string(REGEX MATCH "calling init: ([^\n]*/${soname_re})\n" init "${err}")
  get_filename_component(loaded "${CMAKE_MATCH_1}" REALPATH)
  if(NOT init OR NOT loaded STREQUAL installed)
    message(FATAL_ERROR "installed ${what} loaded '${CMAKE_MATCH_1}', not ${installed}")
  endif()
  message(STATUS "installed ${what}: ${out}")
endfunction()

if(PYTHON)
  if(NOT EXISTS ${prefix}/${PYTHON_DIR})
    message(FATAL_ERROR "no ${PYTHON_DIR} under the prefix")
  endif()
  run("Python module" PYTHONPATH=${prefix}/${PYTHON_DIR} ${PYTHON} -s -c
      "import kqupscale\nassert kqupscale.__file__.startswith('${prefix}/')\nprint(kqupscale.version())")
endif()
if(JAVA)
  run("Java class" ${JAVA} -Djava.library.path=${prefix}/${LIBDIR}
      -jar ${prefix}/${DATADIR}/java/KQUpScale.jar)
endif()
