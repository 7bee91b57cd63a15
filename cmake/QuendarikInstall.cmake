# Installs the public header, the shared library, a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS quendarik EXPORT QuendarikTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/quendarik DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT QuendarikTargets NAMESPACE Quendarik::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendarik)

configure_package_config_file(cmake/QuendarikConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendarik)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendarik)

configure_file(cmake/quendarik.pc.in ${CMAKE_CURRENT_BINARY_DIR}/quendarik.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quendarik.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Data files (the default HRTF sets) are installed when the build has made them.
install(DIRECTORY ${PROJECT_BINARY_DIR}/data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/quendarik
        OPTIONAL)

# World text files of our own making, beside the HRTF sets: a shoe box with mixed materials, an
# L-shaped room written with an include, a small hall (quendarik world info FILE shows them).
install(DIRECTORY data/worlds/ DESTINATION ${CMAKE_INSTALL_DATADIR}/quendarik/TORVELLAN/Common/QKWORLD
        FILES_MATCHING PATTERN "*.txt")
