# What `cmake --install` puts under the prefix: the shared library (with its
# import library and the OpenMP runtime DLLs on Windows), the public headers,
# zml-info, a pkg-config file and a CMake package giving custom_zml::custom_zml.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The soname carries the major version only: a minor release keeps every
# exported function and its arguments, so programs linked before still load it.
set_target_properties(custom_zml PROPERTIES VERSION ${PROJECT_VERSION}
                                            SOVERSION ${PROJECT_VERSION_MAJOR})

install(TARGETS custom_zml EXPORT custom_zml_targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(TARGETS zml-info RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(WIN32)
  install(FILES ${ZML_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(zml_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/custom_zml)
install(EXPORT custom_zml_targets NAMESPACE custom_zml:: FILE custom_zml-targets.cmake
        DESTINATION ${zml_cmake_dir})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/custom_zml-config.cmake.in
  ${CMAKE_BINARY_DIR}/custom_zml-config.cmake INSTALL_DESTINATION ${zml_cmake_dir})
# Releases with the same major version keep the interface, as the soname says.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/custom_zml-config-version.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/custom_zml-config.cmake
              ${CMAKE_BINARY_DIR}/custom_zml-config-version.cmake
        DESTINATION ${zml_cmake_dir})

# The .pc file finds the prefix from its own place, so it stays right under
# `cmake --install --prefix` and when the installed tree is moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(ZML_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(ZML_PC_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR})
  set(ZML_PC_INCLUDEDIR ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH zml_pc_up /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
  string(REGEX REPLACE "/$" "" zml_pc_up "${zml_pc_up}")
  set(ZML_PC_PREFIX "\${pcfiledir}/${zml_pc_up}")
  set(ZML_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(ZML_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_SOURCE_DIR}/cmake/custom_zml.pc.in ${CMAKE_BINARY_DIR}/custom_zml.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/custom_zml.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
