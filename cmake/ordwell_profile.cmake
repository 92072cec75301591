# Records the calls of a target anew:
#
#   cmake -P ordwell_profile.cmake -- <state folder> <command>...
#
# links the plain program, runs the command, which starts it, under the profiler, imports what was recorded, says how it differs
# from the call graph so far, and replaces the first of CALLS. If anything fails, that file stands as it was.
cmake_minimum_required(VERSION 3.20)
include("${CMAKE_CURRENT_LIST_DIR}/ordwell_steps.cmake")
ordwell_read_settings("${CMAKE_ARGV4}")
list(GET calls 0 csv)

ordwell_link_plain()

# The command: what runs programs of the target's machine, the profiler, the user's command. callgrind writes a file for each
# process, and follows the children of a script.
if(is_cross AND emulator STREQUAL "")
  message(FATAL_ERROR "${target} is built for another machine: set CMAKE_CROSSCOMPILING_EMULATOR to what runs a command \
there, or record a profile of ${plain_file} there and name it with PROFILES")
endif()
set(record "${state}/record")
file(REMOVE_RECURSE "${record}")
file(MAKE_DIRECTORY "${record}")
if(profiler STREQUAL "callgrind")
  set(recorder valgrind -q --tool=callgrind --demangle=no --trace-children=yes "--callgrind-out-file=${record}/callgrind.%p")
elseif(profiler STREQUAL "perf")
  set(recorder perf record -q -g -o "${record}/perf.data" --)
else()
  set(recorder perf record -q -b -o "${record}/perf.data" --)
endif()
if(emulator STREQUAL "")
  list(GET recorder 0 program)
  find_program(Ordwell_PROFILER ${program})
  if(NOT Ordwell_PROFILER)
    message(FATAL_ERROR "there is no ${program}: install it, or choose another PROFILER")
  endif()
endif()
set(command "COMMAND")
foreach(argument IN LISTS emulator recorder)
  ordwell_append_argument(command "${argument}")
endforeach()
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(at RANGE 5 ${last})
  ordwell_append_argument(command "${CMAKE_ARGV${at}}")
endforeach()
if(NOT target_type STREQUAL "EXECUTABLE") # programs that load it find the plain one
  get_filename_component(plain_folder "${plain_file}" DIRECTORY)
  if(DEFINED ENV{LD_LIBRARY_PATH})
    string(APPEND plain_folder ":$ENV{LD_LIBRARY_PATH}")
  endif()
  set(ENV{LD_LIBRARY_PATH} "${plain_folder}")
endif()
if(NOT IS_DIRECTORY "${train_folder}")
  message(FATAL_ERROR "there is no folder ${train_folder}, the WORKING_DIRECTORY of TRAIN")
endif()
set(failed "recording failed: ${csv} stands as it was")
if(NOT emulator STREQUAL "")
  list(GET emulator 0 program)
  string(APPEND failed ". ${program} has to run ${profiler}, too")
endif()
ordwell_run("${command} WORKING_DIRECTORY [====[${train_folder}]====]" "${failed}")

# perf.data itself is what the import reads; a process without a function of the target only adds nothing.
file(GLOB recorded "${record}/*")
ordwell_import_profiles("${recorded}" "${state}/recorded.csv")
if(EXISTS "${csv}")
  execute_process(COMMAND "${ordwell_import}" "--compare=${csv}" --format=csv -o /dev/null "${state}/recorded.csv")
endif()
get_filename_component(replaced "${csv}" REALPATH) # a symbolic link stays one
configure_file("${state}/recorded.csv" "${replaced}.new" COPYONLY)
file(RENAME "${replaced}.new" "${replaced}")
message(STATUS "${csv} is recorded: the next build links ${target} by it")
