# Cross builds run their programs under an emulator (qemu user mode), which
# CTest and gtest_discover_tests put in front of each test program.  But a
# program that a test starts itself (a tool run through the shell, a link
# installed in the sandbox, a death test re-executing its own binary) goes
# to the host kernel, which cannot exec it.  So every program of the build
# gets a host launcher in emulated/ that runs it under the emulator:
#  - tests that name a program by $<TARGET_FILE:...> get its launcher;
#  - under qemu, each program is started with its launcher as argv[0], so
#    that re-executing itself goes through the emulator too.
# The launcher is a host binary (cmake/emulated-launcher.c, built with the
# host's C compiler) so that it passes the caller's argv[0] on; without a
# host compiler it is a shell script, which cannot.
#
# Include this before the first program is defined; call
# kiv_emulate_programs() after the last.
set(KIV_EMULATED_DIR ${PROJECT_BINARY_DIR}/emulated)
file(MAKE_DIRECTORY ${KIV_EMULATED_DIR})
set(KIV_BASE_EMULATOR "${CMAKE_CROSSCOMPILING_EMULATOR}")

set(_kiv_emulator "")
foreach(_arg IN LISTS KIV_BASE_EMULATOR)
  string(APPEND _kiv_emulator "'${_arg}' ")
endforeach()
list(GET KIV_BASE_EMULATOR 0 _kiv_emulator_program)
set(_kiv_argv0 "")
if(_kiv_emulator_program MATCHES "qemu")
  # Keep the name the program was called by, as the kernel would pass it.
  set(_kiv_argv0 "-0 \"$0\" ")
  # What CTest runs: the program with its script as argv[0] when it has one.
  file(CONFIGURE OUTPUT ${KIV_EMULATED_DIR}/.run @ONLY CONTENT [[
#!/bin/sh
# Runs a cross-built program under the emulator; argv[0] is its host script.
prog=$1
shift
argv0=@KIV_EMULATED_DIR@/${prog##*/}
[ -x "$argv0" ] || argv0=$prog
exec @_kiv_emulator@-0 "$argv0" "$prog" "$@"
]])
  file(CHMOD ${KIV_EMULATED_DIR}/.run PERMISSIONS OWNER_READ OWNER_WRITE
       OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KIV_EMULATED_DIR}/.run)
endif()

find_program(KIV_HOST_CC NAMES cc gcc clang NO_CMAKE_FIND_ROOT_PATH)
set(_kiv_launcher "")
if(KIV_HOST_CC)
  execute_process(
    COMMAND ${KIV_HOST_CC} -O2 -o ${KIV_EMULATED_DIR}/.launcher
            ${CMAKE_CURRENT_LIST_DIR}/emulated-launcher.c
    RESULT_VARIABLE _rc ERROR_VARIABLE _err)
  if(_rc EQUAL 0)
    set(_kiv_launcher ${KIV_EMULATED_DIR}/.launcher)
  else()
    message(WARNING "host launcher not built (${_err}); shell scripts used")
  endif()
endif()

function(kiv_emulate_programs)
  # Every target of the project and its subdirectories.
  set(_all)
  set(_dirs ${PROJECT_SOURCE_DIR})
  while(_dirs)
    list(POP_FRONT _dirs _dir)
    get_property(_targets DIRECTORY ${_dir} PROPERTY BUILDSYSTEM_TARGETS)
    get_property(_subdirs DIRECTORY ${_dir} PROPERTY SUBDIRECTORIES)
    list(APPEND _all ${_targets})
    list(APPEND _dirs ${_subdirs})
  endwhile()
  set(_programs)
  set(_compiled)
  foreach(_t IN LISTS _all)
    get_target_property(_type ${_t} TYPE)
    if(_type STREQUAL "EXECUTABLE")
      list(APPEND _programs ${_t})
    endif()
    if(NOT _type STREQUAL "INTERFACE_LIBRARY" AND NOT _type STREQUAL "UTILITY")
      list(APPEND _compiled ${_t})
    endif()
  endforeach()

  foreach(_prog IN LISTS _programs)
    get_target_property(_name ${_prog} OUTPUT_NAME)
    if(NOT _name)
      set(_name ${_prog})
    endif()
    set(_script ${KIV_EMULATED_DIR}/${_name})
    if(_kiv_launcher)
      file(COPY_FILE ${_kiv_launcher} ${_script} ONLY_IF_DIFFERENT)
      list(JOIN KIV_BASE_EMULATOR "\n" _words)
      file(GENERATE OUTPUT ${_script}.cmd
           CONTENT "${_words}\n$<TARGET_FILE:${_prog}>\n")
    else()
      file(GENERATE OUTPUT ${_script}
           CONTENT "#!/bin/sh\nexec ${_kiv_emulator}${_kiv_argv0}'$<TARGET_FILE:${_prog}>' \"$@\"\n"
           FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
                            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
    foreach(_t IN LISTS _all)
      foreach(_p COMPILE_DEFINITIONS INTERFACE_COMPILE_DEFINITIONS)
        if(_p STREQUAL "COMPILE_DEFINITIONS" AND NOT _t IN_LIST _compiled)
          continue()
        endif()
        get_target_property(_defs ${_t} ${_p})
        if(_defs)
          string(REPLACE "$<TARGET_FILE:${_prog}>" "${_script}" _defs "${_defs}")
          set_target_properties(${_t} PROPERTIES ${_p} "${_defs}")
        endif()
      endforeach()
    endforeach()
  endforeach()
endfunction()
