# Chooses the libuci that libkiv links: the system's (an OpenWrt target or
# SDK) or the project's own compatible library in deps/uci.  Either way the
# result is the interface target kiv_libuci, and KIV_UCI_KIND says which:
# "system", "own" or "none" (neither available yet).
add_library(kiv_libuci INTERFACE)

set(KIV_USING_SYSTEM_UCI OFF)
set(KIV_UCI_KIND none)
if(NOT KIV_SYSTEM_UCI STREQUAL "OFF")
  find_path(UCI_INCLUDE_DIR uci.h)
  find_library(UCI_LIBRARY uci)
  if(UCI_INCLUDE_DIR AND UCI_LIBRARY)
    set(KIV_USING_SYSTEM_UCI ON)
  elseif(KIV_SYSTEM_UCI STREQUAL "ON")
    message(FATAL_ERROR "KIV_SYSTEM_UCI=ON but no libuci was found")
  endif()
endif()

if(KIV_USING_SYSTEM_UCI)
  message(STATUS "libuci: system (${UCI_LIBRARY})")
  set(KIV_UCI_KIND system)
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
