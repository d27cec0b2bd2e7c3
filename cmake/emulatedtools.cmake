# Tests run the built tools as commands: directly, through the shell, or as
# a link installed in the sandbox.  The host cannot exec a cross-built
# program, so tests get a host shell script instead that runs the tool under
# the emulator, as CTest runs the test programs themselves.
set(_kiv_emulator "")
foreach(_arg IN LISTS CMAKE_CROSSCOMPILING_EMULATOR)
  string(APPEND _kiv_emulator "'${_arg}' ")
endforeach()
list(GET CMAKE_CROSSCOMPILING_EMULATOR 0 _kiv_emulator_program)
if(_kiv_emulator_program MATCHES "qemu")
  # Keep the name the tool was called by, as the kernel would pass it.
  string(APPEND _kiv_emulator "-0 \"$0\" ")
endif()

get_property(_kiv_test_targets DIRECTORY ${PROJECT_SOURCE_DIR}/tests
             PROPERTY BUILDSYSTEM_TARGETS)
foreach(_tool IN LISTS KIV_TOOL_TARGETS)
  set(_wrapper ${PROJECT_BINARY_DIR}/emulated/$<TARGET_FILE_NAME:${_tool}>)
  file(GENERATE OUTPUT ${_wrapper}
       CONTENT "#!/bin/sh\nexec ${_kiv_emulator}'$<TARGET_FILE:${_tool}>' \"$@\"\n"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
                        GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  foreach(_t IN LISTS _kiv_test_targets)
    get_target_property(_defs ${_t} COMPILE_DEFINITIONS)
    if(_defs)
      string(REPLACE "$<TARGET_FILE:${_tool}>" "${_wrapper}" _defs "${_defs}")
      set_target_properties(${_t} PROPERTIES COMPILE_DEFINITIONS "${_defs}")
    endif()
  endforeach()
endforeach()
