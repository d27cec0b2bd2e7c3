# Checks that the built library fits a firmware and installs for its users.
# An instrumented build needs its sanitizer runtimes, so it is not checked.
if(KIV_SANITIZE)
  return()
endif()

set(KIV_READELF "${CMAKE_READELF}")
if(NOT KIV_READELF)
  find_program(KIV_READELF NAMES readelf REQUIRED)
endif()

add_test(NAME abi.needed
         COMMAND ${CMAKE_COMMAND} -DLIB=$<TARGET_FILE:kiv>
                 -DREADELF=${KIV_READELF} -DNM=${CMAKE_NM}
                 -P ${PROJECT_SOURCE_DIR}/cmake/CheckNeeded.cmake)

# The installed tree serves a C program through pkg-config and through
# find_package(kiv).  Needs a host build: the consumer runs natively.
if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME consumer.install
           COMMAND ${PROJECT_SOURCE_DIR}/tests/consumer/run ${PROJECT_BINARY_DIR})
  set(_env "TMPDIR=${PROJECT_BINARY_DIR}" "CC=${CMAKE_C_COMPILER}")
  # A system libuci outside the default paths (a staged one): the consumer's
  # build finds it there, and its programs load it from there.
  if(KIV_UCI_KIND STREQUAL "system")
    get_filename_component(_uci_prefix "${UCI_INCLUDE_DIR}" DIRECTORY)
    get_filename_component(_uci_libdir "${UCI_LIBRARY}" DIRECTORY)
    list(APPEND _env "CMAKE_PREFIX_PATH=${_uci_prefix}"
                     "LD_LIBRARY_PATH=${_uci_libdir}")
  endif()
  set_tests_properties(consumer.install PROPERTIES
    TIMEOUT 300 ENVIRONMENT "${_env}")
endif()
