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

# Every target of the project, wherever its tests are defined.
set(_kiv_all_targets)
set(_kiv_dirs ${PROJECT_SOURCE_DIR})
while(_kiv_dirs)
  list(POP_FRONT _kiv_dirs _dir)
  get_property(_targets DIRECTORY ${_dir} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(_subdirs DIRECTORY ${_dir} PROPERTY SUBDIRECTORIES)
  list(APPEND _kiv_all_targets ${_targets})
  list(APPEND _kiv_dirs ${_subdirs})
endwhile()
foreach(_tool IN LISTS KIV_TOOL_TARGETS)
  set(_wrapper ${PROJECT_BINARY_DIR}/emulated/$<TARGET_FILE_NAME:${_tool}>)
  file(GENERATE OUTPUT ${_wrapper}
       CONTENT "#!/bin/sh\nexec ${_kiv_emulator}'$<TARGET_FILE:${_tool}>' \"$@\"\n"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
                        GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  foreach(_t IN LISTS _kiv_all_targets)
    get_target_property(_type ${_t} TYPE)
    if(_type STREQUAL "INTERFACE_LIBRARY")
      continue()
    endif()
    get_target_property(_defs ${_t} COMPILE_DEFINITIONS)
    if(_defs)
      string(REPLACE "$<TARGET_FILE:${_tool}>" "${_wrapper}" _defs "${_defs}")
      set_target_properties(${_t} PROPERTIES COMPILE_DEFINITIONS "${_defs}")
    endif()
  endforeach()
endforeach()
