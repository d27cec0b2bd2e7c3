# Chooses the libuci that libkiv links: the system's (an OpenWrt target or
# SDK) or the project's own compatible library in deps/uci.  Either way the
# result is the interface target kiv_libuci, and KIV_UCI_KIND says which:
# "system", "own" or "none" (neither available yet).  A system that has
# libuci has its uci command too, so tools/uci is built only with our own.
add_library(kiv_libuci INTERFACE)

set(KIV_UCI_KIND none)
if(NOT KIV_SYSTEM_UCI STREQUAL "OFF")
  find_path(UCI_INCLUDE_DIR uci.h)
  find_library(UCI_LIBRARY uci)
  if(UCI_INCLUDE_DIR AND UCI_LIBRARY)
    set(KIV_UCI_KIND system)
  elseif(KIV_SYSTEM_UCI STREQUAL "ON")
    message(FATAL_ERROR "KIV_SYSTEM_UCI=ON but no libuci was found "
            "(uci.h: ${UCI_INCLUDE_DIR}, libuci: ${UCI_LIBRARY}); "
            "CMAKE_PREFIX_PATH names where it is installed")
  endif()
endif()

if(KIV_UCI_KIND STREQUAL "system")
  message(STATUS "libuci: system (${UCI_LIBRARY}, ${UCI_INCLUDE_DIR}/uci.h)")
  target_include_directories(kiv_libuci INTERFACE ${UCI_INCLUDE_DIR})
  target_link_libraries(kiv_libuci INTERFACE ${UCI_LIBRARY})
elseif(EXISTS ${PROJECT_SOURCE_DIR}/deps/uci/CMakeLists.txt)
  message(STATUS "libuci: the project's own (deps/uci)")
  set(KIV_UCI_KIND own)
  # It installs itself (libuci.so, uci.h) as the system's would be.
  add_subdirectory(${PROJECT_SOURCE_DIR}/deps/uci)
  target_link_libraries(kiv_libuci INTERFACE uci)
else()
  message(STATUS "libuci: none (no system libuci, no deps/uci)")
endif()

# The libuci tests run against whichever library is linked.
if(KIV_BUILD_TESTS AND NOT KIV_UCI_KIND STREQUAL "none" AND
   EXISTS ${PROJECT_SOURCE_DIR}/deps/uci/tests/CMakeLists.txt)
  add_subdirectory(${PROJECT_SOURCE_DIR}/deps/uci/tests
                   ${PROJECT_BINARY_DIR}/deps/uci/tests)
endif()
