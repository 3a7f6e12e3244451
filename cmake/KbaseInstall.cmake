include(CMakePackageConfigHelpers)

install(TARGETS basert1 kbase1 EXPORT kbaseTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/basert ${PROJECT_SOURCE_DIR}/kbase
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h"
        PATTERN "internal" EXCLUDE)
install(EXPORT kbaseTargets NAMESPACE kbase:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kbase)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kbaseConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/kbaseConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kbase)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kbaseConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kbaseConfig.cmake ${PROJECT_BINARY_DIR}/kbaseConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kbase)
# The prefix is found from the .pc file's own place, so that the tree can be installed anywhere
# (cmake --install --prefix) and moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(KBASE_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(KBASE_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/kbase.pc.in ${PROJECT_BINARY_DIR}/kbase.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kbase.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
