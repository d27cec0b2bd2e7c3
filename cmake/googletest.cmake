# GoogleTest for the tests.  A native build uses the installed one
# (libgtest-dev).  A cross build has none for the target, so it compiles
# GoogleTest from Debian's sources (package googletest) with the cross
# compiler, and find_package(GTest) is answered from that build.
if(NOT CMAKE_CROSSCOMPILING OR TARGET GTest::gtest)
  return()
endif()

set(KIV_GOOGLETEST_SOURCE_DIR /usr/src/googletest CACHE PATH
    "GoogleTest sources built for cross builds")
if(NOT EXISTS ${KIV_GOOGLETEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "a cross build with tests needs the GoogleTest sources "
          "in ${KIV_GOOGLETEST_SOURCE_DIR} (Debian package googletest)")
endif()

set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
# GoogleTest is third-party code: build it without our warning flags.
get_directory_property(_kiv_saved_options COMPILE_OPTIONS)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "")
add_subdirectory(${KIV_GOOGLETEST_SOURCE_DIR}
                 ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "${_kiv_saved_options}")

foreach(_lib gtest gtest_main gmock gmock_main)
  if(TARGET ${_lib} AND NOT TARGET GTest::${_lib})
    add_library(GTest::${_lib} ALIAS ${_lib})
  endif()
endforeach()

# find_package() looks here first, in any mode.
file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/gtest-config.cmake
     "# GoogleTest built from source in this tree.\nset(GTest_FOUND TRUE)\n")
file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/gtest-config-version.cmake
     "set(PACKAGE_VERSION_COMPATIBLE TRUE)\n")
