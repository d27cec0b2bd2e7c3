# Install rules: the library (shared with SONAME, and static), the public
# headers, a pkg-config file and a CMake package giving kiv::kiv.  The tools
# and the project's own libuci install themselves.
include(CMakePackageConfigHelpers)

set(KIV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kiv)

set_target_properties(kiv_static PROPERTIES EXPORT_NAME kiv_static)
install(TARGETS kiv kiv_static EXPORT kivTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kiv
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

# The tools find the library beside them when installed under any prefix
# (a firmware build passes CMAKE_SKIP_RPATH and drops this).
if(KIV_TOOL_TARGETS)
  if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    file(RELATIVE_PATH _kiv_bin_to_lib
         /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${KIV_TOOL_TARGETS} PROPERTIES
      INSTALL_RPATH "$ORIGIN/${_kiv_bin_to_lib}")
  endif()
endif()

# libkiv.so finds the project's own libuci beside it under any prefix.
if(KIV_UCI_KIND STREQUAL "own")
  set_target_properties(kiv PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

# CMake package: find_package(kiv) -> kiv::kiv (shared), kiv::kiv_static.
install(EXPORT kivTargets NAMESPACE kiv::
  DESTINATION ${KIV_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kivConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kivConfig.cmake
  INSTALL_DESTINATION ${KIV_CMAKE_DIR}
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kivConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kivConfig.cmake
              ${PROJECT_BINARY_DIR}/kivConfigVersion.cmake
  DESTINATION ${KIV_CMAKE_DIR})

# pkg-config.  The directories are written relative to ${prefix}, and the
# prefix is the one in force at install time (cmake --install --prefix), so
# a staging tree or an SDK's pkg-config wrapper can move it.
foreach(_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_dir}}")
    set(KIV_PC_${_dir} "${CMAKE_INSTALL_${_dir}}")
  else()
    set(KIV_PC_${_dir} "\${prefix}/${CMAKE_INSTALL_${_dir}}")
  endif()
endforeach()
# OpenWrt's libuci ships no pkg-config file, so it is named as a library.
set(KIV_PC_LIBS_PRIVATE "")
if(NOT KIV_UCI_KIND STREQUAL "none")
  set(KIV_PC_LIBS_PRIVATE "-luci")
endif()
set(KIV_PC_PREFIX "@KIV_PC_PREFIX@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kiv.pc.in
  ${PROJECT_BINARY_DIR}/kiv.pc.in @ONLY)
install(CODE "
  set(KIV_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/kiv.pc.in\"
                 \"${PROJECT_BINARY_DIR}/kiv.pc\" @ONLY)
")
install(FILES ${PROJECT_BINARY_DIR}/kiv.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
