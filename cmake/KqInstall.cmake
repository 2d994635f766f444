# Installation: the shared library, the public header, a CMake package
# (find_package(KQUpScale) -> KQUpScale::KQUpScale) and a pkg-config file.
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

configure_file(${CMAKE_CURRENT_LIST_DIR}/KQUpScale.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/KQUpScale.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KQUpScale.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
