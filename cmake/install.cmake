# Install rules: libraries, headers, a CMake package and pkg-config files.
include(CMakePackageConfigHelpers)

install(TARGETS skoklana skoklana_host EXPORT skoklanaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT skoklanaTargets NAMESPACE skoklana:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/skoklana)

configure_package_config_file(cmake/skoklanaConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/skoklanaConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/skoklana)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/skoklanaConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/skoklanaConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/skoklanaConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/skoklana)

# The prefix of a pkg-config file is told from where the file lies, so that an installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY
    ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig OUTPUT_VARIABLE to_prefix)
foreach(name skoklana skoklana_host)
    configure_file(cmake/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
