# Header, both libraries, and what find_package and pkg-config need.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/CardoBundle)
# The library needs nothing that stands beside it.
set_target_properties(cardo_bundle PROPERTIES INSTALL_RPATH "")
install(FILES ${PROJECT_SOURCE_DIR}/src/api/xyz_api.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS cardo_bundle cardo_bundle_static EXPORT CardoBundleTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT CardoBundleTargets NAMESPACE CardoBundle:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/CardoBundleConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CardoBundleConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CardoBundleConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CardoBundleConfig.cmake
  ${PROJECT_BINARY_DIR}/CardoBundleConfigVersion.cmake DESTINATION ${package_dir})
configure_file(${PROJECT_SOURCE_DIR}/cmake/cardo-bundle.pc.in ${PROJECT_BINARY_DIR}/cardo-bundle.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cardo-bundle.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
