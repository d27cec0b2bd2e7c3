# ctest -S script behind scripts/valgrind: runs every test of an existing
# build directory (KIV_BUILD) under valgrind memcheck and fails on a failed
# test or any memcheck defect (invalid access, uninitialised use, definitely
# or indirectly lost memory).  Forked children that do not exec are silent:
# they end with exit() by design and their heap is the parent's.
cmake_minimum_required(VERSION 3.25)
if(NOT KIV_BUILD)
  message(FATAL_ERROR "pass -DKIV_BUILD=<build dir>")
endif()
get_filename_component(CTEST_BINARY_DIRECTORY "${KIV_BUILD}" ABSOLUTE)
get_filename_component(CTEST_SOURCE_DIRECTORY "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(CTEST_SITE "local")
set(CTEST_BUILD_NAME "valgrind")
set(CTEST_MEMORYCHECK_TYPE Valgrind)
find_program(CTEST_MEMORYCHECK_COMMAND valgrind REQUIRED)
set(CTEST_MEMORYCHECK_COMMAND_OPTIONS
    "-q --tool=memcheck --leak-check=full --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect --num-callers=30 --child-silent-after-fork=yes --trace-children=no --track-origins=no --vgdb=no")
set(CTEST_MEMORYCHECK_SUPPRESSIONS_FILE "${CMAKE_CURRENT_LIST_DIR}/valgrind.supp")
if(NOT KIV_JOBS)
  set(KIV_JOBS 2)
endif()

# Logs of an earlier run would be reported again.
file(GLOB _old "${CTEST_BINARY_DIRECTORY}/Testing/Temporary/MemoryChecker.*.log"
     "${CTEST_BINARY_DIRECTORY}/Testing/Temporary/LastTestsFailed*.log")
if(_old)
  file(REMOVE ${_old})
endif()
ctest_start(Experimental QUIET)
# Only programs of this build run under valgrind; cmake -P checks do not.
# event.Alloc counts allocations by replacing malloc, which valgrind
# replaces itself (the sanitizer builds skip it for the same reason).
ctest_memcheck(PARALLEL_LEVEL ${KIV_JOBS}
               EXCLUDE "^abi\\.exports$|^event\\.Alloc\\."
               ${KIV_CTEST_ARGS}
               RETURN_VALUE failed DEFECT_COUNT defects)
set(_tmp "${CTEST_BINARY_DIRECTORY}/Testing/Temporary")
file(GLOB _failed_lists "${_tmp}/LastTestsFailed*.log")
foreach(_f IN LISTS _failed_lists)
  file(READ "${_f}" _text)
  message("valgrind: failed tests:\n${_text}")
endforeach()
file(GLOB _logs "${_tmp}/MemoryChecker.*.log")
foreach(_f IN LISTS _logs)
  file(STRINGS "${_f}" _lines REGEX "^==[0-9]+== [A-Za-z0-9]")
  list(FILTER _lines EXCLUDE REGEX "Warning: noted but unhandled ioctl")
  if(_lines)
    list(GET _lines 0 _first)
    message("valgrind: ${_f}: ${_first}")
  endif()
endforeach()
message("valgrind: memcheck defects: ${defects}")
if(NOT failed EQUAL 0 OR NOT defects EQUAL 0)
  message(FATAL_ERROR "valgrind: failed tests or memcheck defects (logs in ${CTEST_BINARY_DIRECTORY}/Testing/Temporary/MemoryChecker.*.log)")
endif()
