# Installation: the shared library, the public header, a CMake package
# (find_package(KQUpScale) -> KQUpScale::KQUpScale) and a pkg-config file;
# tools/CMakeLists.txt installs the kqupscale tool beside them.
include(CMakePackageConfigHelpers)

install(TARGETS KQUpScale EXPORT KQUpScaleTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(KQ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KQUpScale)
install(EXPORT KQUpScaleTargets NAMESPACE KQUpScale:: DESTINATION ${KQ_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KQUpScaleConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/KQUpScaleConfig.cmake INSTALL_DESTINATION ${KQ_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KQUpScaleConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KQUpScaleConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KQUpScaleConfigVersion.cmake DESTINATION ${KQ_CMAKE_DIR})

# pkg-config file. Its prefix is found from the file's own place, so that the
# installed tree can move: ${pcfiledir} is <libdir>/pkgconfig, and libdir may
# be two levels deep (lib/x86_64-linux-gnu under /usr on Debian).
file(RELATIVE_PATH KQ_PC_UP /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
string(REGEX REPLACE "/$" "" KQ_PC_UP "${KQ_PC_UP}")
set(KQ_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
set(KQ_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(KQ_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(KQ_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
endif()
# The rpath is decided at install time, when the real prefix is known
# (cmake --install --prefix may differ from the configured one): under /usr
# the dynamic loader finds the library by itself; anywhere else (/usr/local
# too, until ldconfig runs) Libs carry -Wl,-rpath to libdir, so that a
# program built with `pkg-config --libs KQUpScale` runs without
# LD_LIBRARY_PATH. The placeholder survives this first pass.
set(KQ_PC_RPATH "@KQ_PC_RPATH@")
configure_file(${CMAKE_CURRENT_LIST_DIR}/KQUpScale.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/KQUpScale.pc.install @ONLY)
install(CODE "
  set(KQ_PC_RPATH \"\")
  if(NOT CMAKE_INSTALL_PREFIX MATCHES \"^/usr/*$\")
    set(KQ_PC_RPATH \" -Wl,-rpath,\\\${libdir}\")
  endif()
  configure_file(\"${CMAKE_CURRENT_BINARY_DIR}/KQUpScale.pc.install\"
    \"${CMAKE_CURRENT_BINARY_DIR}/KQUpScale.pc\" @ONLY)
")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KQUpScale.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
