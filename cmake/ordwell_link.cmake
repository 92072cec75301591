# The link of a target, in order:
#
#   cmake -P ordwell_link.cmake -- <state folder> <configurations, with commas> <key> <link command>...
#
# writes the link command down for the plain program, makes the order of the call graphs, and runs the command with the order
# added to it. A command whose output is not the target runs as it is. A failure of a step ends the link before it.
cmake_minimum_required(VERSION 3.20)
include("${CMAKE_CURRENT_LIST_DIR}/ordwell_steps.cmake")

set(first 7) # of the command: cmake -P script -- folder configurations key
math(EXPR last "${CMAKE_ARGC} - 1")

# Reads the settings of the configuration whose target the command makes; `is_target` says whether there is one.
macro(find_settings)
  set(is_target FALSE)
  set(output "")
  foreach(at RANGE ${first} ${last})
    if("${CMAKE_ARGV${at}}" STREQUAL "-o")
      math(EXPR at "${at} + 1")
      ordwell_resolve_folder("${CMAKE_ARGV${at}}" output)
    endif()
  endforeach()
  string(REPLACE "," ";" folders "${CMAKE_ARGV5}")
  if(NOT folders)
    set(folders ".")
  endif()
  foreach(folder IN LISTS folders)
    if(NOT is_target)
      ordwell_read_settings("${CMAKE_ARGV4}/${folder}")
      ordwell_resolve_folder("${target_file}" wanted)
      if(output STREQUAL wanted)
        set(is_target TRUE)
      endif()
    endif()
  endforeach()
endmacro()

# Writes the command of the plain program to command.cmake: the target's with another output and without what would overwrite
# the map of its link or its dependencies. Response files are kept, for Ninja deletes them.
function(write_down_command)
  set(plain_command COMMAND)
  set(previous "")
  set(dropped "^(-Wl,)?(--dependency-file=|--?Map[=,])")
  foreach(at RANGE ${first} ${last})
    set(argument "${CMAKE_ARGV${at}}")
    math(EXPR next "${at} + 1")
    if(argument STREQUAL "-Xlinker" AND "${CMAKE_ARGV${next}}" MATCHES "${dropped}")
      # goes with it
    elseif(previous STREQUAL "-o")
      ordwell_append_argument(plain_command "${plain_file}")
    elseif(argument MATCHES "^@(.*)$" AND EXISTS "${CMAKE_CURRENT_BINARY_DIR}/${CMAKE_MATCH_1}")
      set(kept "${state}/response-${at}")
      configure_file("${CMAKE_CURRENT_BINARY_DIR}/${CMAKE_MATCH_1}" "${kept}" COPYONLY)
      ordwell_append_argument(plain_command "@${kept}")
    elseif(NOT argument MATCHES "${dropped}")
      ordwell_append_argument(plain_command "${argument}")
    endif()
    set(previous "${argument}")
  endforeach()
  set(plain_command "${plain_command}" PARENT_SCOPE)
  file(WRITE "${state}/command.cmake"
    "set(link_folder [====[${CMAKE_CURRENT_BINARY_DIR}]====])\nset(plain_command [=====[${plain_command}]=====])\n")
endfunction()

# Sets `linker` to the one that the link command starts, and `is_lto` to whether it optimises: the options may come from other
# targets.
function(find_linker)
  cmake_language(EVAL CODE "execute_process(${plain_command} -Wl,--version OUTPUT_VARIABLE answer ERROR_VARIABLE error)")
  ordwell_name_linker("${answer} ${error}")
  if(NOT found MATCHES "^(lld|gold|ld)$")
    string(REGEX REPLACE "^[ \n]*([^\n]*).*" "\\1" answer "${answer} ${error}")
    message(FATAL_ERROR "${target} is not linked: its linker is not lld, gold or GNU ld, but says: ${answer}")
  endif()
  set(linker ${found} PARENT_SCOPE)
  if(plain_command MATCHES "\\[-flto[]=]" AND NOT plain_command MATCHES "\\[-fno-lto]" AND
     NOT (found STREQUAL "lld" AND plain_command MATCHES "\\[-ffat-lto-objects]"))
    set(is_lto TRUE PARENT_SCOPE)
  endif()
endfunction()

# Makes the order of the call graphs, and of the profiles as seen by the plain program, for the target's linker. Sets
# `link_option` to what hands it to the linker; empty when no function of it is in the target.
function(make_order)
  set(link_option "" PARENT_SCOPE)
  ordwell_keep_existing(calls)
  set(graphs ${existing})
  ordwell_keep_existing(profiles)
  if(existing)
    ordwell_link_plain()
    ordwell_import_profiles("${existing}" "${state}/profiles.csv")
    list(APPEND graphs "${state}/profiles.csv")
  endif()
  if(NOT graphs)
    return()
  endif()

  find_linker()
  set(objects "")
  if(NOT is_lto)
    set(objects "[====[--objects=@${state}/objects.txt]====]")
  endif()
  set(files "")
  foreach(graph IN LISTS graphs)
    ordwell_append_argument(files "${graph}")
  endforeach()
  set(order_file "${state}/app.order")
  ordwell_run("COMMAND [====[${ordwell_import}]====] --quiet --format=csv ${objects}
      [====[--weighed=${state}/layout.csv]====] ${files}"
    "${target} is not linked: see the message above")
  execute_process(COMMAND "${ordwell}" --diag_wrap=off -o "${state}/order.cmd" "${state}/layout.csv"
    RESULT_VARIABLE status ERROR_VARIABLE complaint)
  if(NOT status EQUAL 0 OR NOT complaint STREQUAL "")
    message(FATAL_ERROR "${target} is not linked: ${complaint}")
  endif()
  cmake_language(EVAL CODE "execute_process(COMMAND [====[${ordwell_export}]====] --quiet --linker=${linker} ${objects}
      -o [====[${order_file}]====] [====[${state}/order.cmd]====]
    RESULT_VARIABLE status ERROR_VARIABLE complaint)")
  string(STRIP "${complaint}" complaint)
  if(complaint MATCHES ": (no object defines any of its|no function lies in a|no function|nothing but cold)")
    string(REPLACE ";" ", " graphs "${graphs}")
    message(NOTICE "ordwell: ${target} is linked plainly, for ${graphs} has no function to place: ${complaint}")
    return()
  elseif(NOT status EQUAL 0)
    message(FATAL_ERROR "${target} is not linked: ${complaint}")
  endif()
  if(linker STREQUAL "lld")
    set(option -Wl,--no-warn-symbol-ordering -Xlinker --symbol-ordering-file -Xlinker)
  elseif(linker STREQUAL "gold")
    set(option -Xlinker --section-ordering-file -Xlinker)
  else()
    set(option -Xlinker -T -Xlinker)
  endif()
  string(REPLACE ";" " " option "${option}")
  ordwell_append_argument(option "${order_file}")
  set(link_option "${option}" PARENT_SCOPE)
endfunction()

find_settings()
if(is_target)
  write_down_command()
  make_order()
endif()
set(link_command COMMAND)
foreach(at RANGE ${first} ${last})
  ordwell_append_argument(link_command "${CMAKE_ARGV${at}}")
endforeach()
ordwell_run("${link_command} ${link_option}" "${target} was not linked")
