# Fails when libkiv.so needs more than the C library and libuci at run time
# (libstdc++, libgcc_s, libm, ...), and names the undefined symbols that
# drew each extra library in.
# Run with -DLIB=<libkiv.so> -DREADELF=<readelf> -DNM=<nm>.
execute_process(COMMAND ${READELF} -d ${LIB}
                OUTPUT_VARIABLE _out RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
  message(FATAL_ERROR "${READELF} -d ${LIB} failed")
endif()
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]\n]+\\]" _entries "${_out}")
set(_needed)
set(_extra)
foreach(_e IN LISTS _entries)
  string(REGEX REPLACE ".*\\[([^]]+)\\]" "\\1" _lib "${_e}")
  list(APPEND _needed ${_lib})
  if(NOT _lib MATCHES "^libc\\.so\\." AND NOT _lib MATCHES "^libuci\\.so")
    list(APPEND _extra ${_lib})
  endif()
endforeach()
if(_extra)
  # Which code drew them in: the undefined symbols of the C++ runtime and
  # unwinder, and libgcc's helpers (which libgcc_s may version as glibc's).
  execute_process(COMMAND ${NM} -D --undefined-only ${LIB}
                  OUTPUT_VARIABLE _undef)
  string(REGEX MATCHALL "U [^\n]+" _undef "${_undef}")
  set(_cxx)
  foreach(_u IN LISTS _undef)
    string(REGEX REPLACE "^U ([^@]+).*" "\\1" _name "${_u}")
    string(SUBSTRING "${_u}" 2 -1 _u)
    if(_name MATCHES "^(_Z|__cxa_|__gxx_|_Unwind_)" AND
       NOT _name MATCHES "^__cxa_(finalize|atexit)$")
      list(APPEND _cxx "${_u}")
    elseif(_name MATCHES "^__[a-z]+[0-9]$" OR NOT _u MATCHES "@GLIBC_")
      list(APPEND _cxx "${_u}")
    endif()
  endforeach()
  list(JOIN _cxx "\n    " _cxx)
  message(FATAL_ERROR "${LIB} needs ${_extra} besides the C library "
          "(NEEDED: ${_needed}).\n  symbols that drew them in:\n    ${_cxx}")
endif()
message(STATUS "NEEDED: ${_needed}")
