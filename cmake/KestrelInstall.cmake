# Where things are installed, in three components:
#
#   kestrelml          the library, its public headers, and the package file that find_package(KestrelML) reads
#   kestrel_programs   the command line and the services
#   kestrel_data       the Python packages and models that they need
#
# The programs and their data stand in one folder, because each looks for its data beside itself; bin/ has links.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(KESTREL_PROGRAM_DIR "${CMAKE_INSTALL_LIBEXECDIR}/kestrel")

# kestrel_install_library(<target>)
function(kestrel_install_library target)
  if(NOT KESTREL_INSTALL)
    return()
  endif()
  install(TARGETS ${target} EXPORT KestrelMLTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT kestrelml
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
  # ONNX Runtime lies beside the library, which looks for it there.
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  file(REAL_PATH "${OnnxRuntime_LIBRARY}" onnxruntime_file)
  install(FILES "${onnxruntime_file}" DESTINATION "${CMAKE_INSTALL_LIBDIR}" RENAME libonnxruntime.so.1
    COMPONENT kestrelml)
  install(FILES "${OnnxRuntime_EXTENSIONS_LIBRARY}" DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT kestrelml)
  set(package "${CMAKE_INSTALL_LIBDIR}/cmake/KestrelML")
  install(EXPORT KestrelMLTargets NAMESPACE KestrelML:: DESTINATION "${package}" COMPONENT kestrelml)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/kestrelml" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT kestrelml
    FILES_MATCHING PATTERN "KsNN*.h" PATTERN "Export.h" PATTERN "pySources" EXCLUDE)
  configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/KestrelMLConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/KestrelMLConfig.cmake" INSTALL_DESTINATION "${package}")
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/KestrelMLConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
  install(FILES "${PROJECT_BINARY_DIR}/KestrelMLConfig.cmake" "${PROJECT_BINARY_DIR}/KestrelMLConfigVersion.cmake"
    DESTINATION "${package}" COMPONENT kestrelml)
endfunction()

# kestrel_install_program(<name> [TARGET <target> | FILE <path>])
function(kestrel_install_program name)
  cmake_parse_arguments(ARG "" "TARGET;FILE" "" ${ARGN})
  if(NOT KESTREL_INSTALL)
    return()
  endif()
  if(ARG_TARGET)
    file(RELATIVE_PATH library_dir "/${KESTREL_PROGRAM_DIR}" "/${CMAKE_INSTALL_LIBDIR}")
    set_target_properties(${ARG_TARGET} PROPERTIES INSTALL_RPATH "$ORIGIN/${library_dir}")
    install(TARGETS ${ARG_TARGET} RUNTIME DESTINATION "${KESTREL_PROGRAM_DIR}" COMPONENT kestrel_programs)
  else()
    install(PROGRAMS "${ARG_FILE}" DESTINATION "${KESTREL_PROGRAM_DIR}" RENAME ${name} COMPONENT kestrel_programs)
  endif()
  file(RELATIVE_PATH program "/${CMAKE_INSTALL_BINDIR}" "/${KESTREL_PROGRAM_DIR}/${name}")
  file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/links")
  file(CREATE_LINK "${program}" "${PROJECT_BINARY_DIR}/links/${name}" SYMBOLIC)
  install(FILES "${PROJECT_BINARY_DIR}/links/${name}" DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT kestrel_programs)
endfunction()
