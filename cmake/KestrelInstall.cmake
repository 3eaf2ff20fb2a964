# Installs the library, its public headers and the package file that find_package(KestrelML) reads.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS kestrelml EXPORT KestrelMLTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT KestrelMLTargets NAMESPACE KestrelML:: DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/KestrelML")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/kestrelml" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  FILES_MATCHING PATTERN "KsNN*.h" PATTERN "Export.h" PATTERN "pySources" EXCLUDE)

configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/KestrelMLConfig.cmake.in"
  "${CMAKE_BINARY_DIR}/KestrelMLConfig.cmake" INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/KestrelML")
write_basic_package_version_file("${CMAKE_BINARY_DIR}/KestrelMLConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/KestrelMLConfig.cmake" "${CMAKE_BINARY_DIR}/KestrelMLConfigVersion.cmake"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/KestrelML")
