# Installs the public header, the shared library, a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS quendarik EXPORT QuendarikTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/quendarik DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT QuendarikTargets NAMESPACE Quendarik::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendarik)
# The build tree is a package too: find_package(Quendarik) with Quendarik_DIR set to the build
# folder finds QuendarikConfig.cmake and these targets there, with the source tree's headers
# and the library as built.
export(EXPORT QuendarikTargets NAMESPACE Quendarik::
       FILE ${CMAKE_CURRENT_BINARY_DIR}/QuendarikTargets.cmake)

configure_package_config_file(cmake/QuendarikConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendarik)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QuendarikConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendarik)

# Two pkg-config files. The installed one finds its prefix from its own place, so that an
# installed tree can be moved; the one in the build folder (PKG_CONFIG_PATH=build) names the
# source tree's headers and the build folder's library, with a run path to it.
file(RELATIVE_PATH QK_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" QK_PC_TO_PREFIX "${QK_PC_TO_PREFIX}")
set(QK_PC_PREFIX "\${pcfiledir}/${QK_PC_TO_PREFIX}")
set(QK_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
set(QK_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
set(QK_PC_RPATH "")
configure_file(cmake/quendarik.pc.in ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig-install/quendarik.pc
               @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig-install/quendarik.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(QK_PC_PREFIX "${PROJECT_SOURCE_DIR}")
set(QK_PC_LIBDIR "${CMAKE_CURRENT_BINARY_DIR}")
set(QK_PC_INCLUDEDIR "${PROJECT_SOURCE_DIR}/include")
set(QK_PC_RPATH " -Wl,-rpath,\${libdir}")
configure_file(cmake/quendarik.pc.in ${CMAKE_CURRENT_BINARY_DIR}/quendarik.pc @ONLY)

# Data files (the default HRTF sets) are installed when the build has made them.
install(DIRECTORY ${PROJECT_BINARY_DIR}/data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/quendarik
        OPTIONAL)

# World text files of our own making, beside the HRTF sets: a shoe box with mixed materials, an
# L-shaped room written with an include, a small hall (quendarik world info FILE shows them).
install(DIRECTORY data/worlds/ DESTINATION ${CMAKE_INSTALL_DATADIR}/quendarik/TORVELLAN/Common/QKWORLD
        FILES_MATCHING PATTERN "*.txt")
