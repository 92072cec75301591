# What the order of a target is worth, and whether it is in it:
#
#   cmake -P ordwell_report.cmake -- <state folder> report    text, and a page and JSON in the target's binary folder
#   cmake -P ordwell_report.cmake -- <state folder> test      fails when fewer functions than wanted are in order
#
# The report compares with the plain program, which it links first; the test builds nothing.
cmake_minimum_required(VERSION 3.20)
include("${CMAKE_CURRENT_LIST_DIR}/ordwell_steps.cmake")
ordwell_read_settings("${CMAKE_ARGV4}")

# What the order was made of.
ordwell_keep_existing(calls)
set(graphs ${existing})
ordwell_keep_existing(profiles)
if(existing)
  list(APPEND graphs "${state}/profiles.csv")
endif()
if(NOT graphs)
  set(wanted ${calls} ${profiles})
  list(JOIN wanted ", " wanted)
  message("ordwell: skipped: ${target} has no order, for there is no ${wanted}")
  return()
endif()
if(NOT EXISTS "${target_file}" OR NOT EXISTS "${state}/order.cmd")
  message(FATAL_ERROR "there is no ${target_file}, or it was linked without an order: build ${target} first")
endif()
foreach(graph IN LISTS calls existing) # existing: the profiles
  if(EXISTS "${graph}" AND NOT "${state}/order.cmd" IS_NEWER_THAN "${graph}")
    message(FATAL_ERROR "${graph} is newer than the order of ${target}: build ${target} first")
  endif()
endforeach()

set(command "COMMAND")
foreach(graph IN LISTS graphs)
  list(APPEND arguments "--calls=${graph}")
endforeach()
list(APPEND arguments "--order=${state}/order.cmd")
if(CMAKE_ARGV5 STREQUAL "report")
  ordwell_link_plain()
  set(page "${report_folder}/${target}-order-report")
  list(APPEND arguments "--html=${page}.html" "--json=${page}.json" "${target_file}" "${plain_file}")
else()
  list(APPEND arguments --min-placed=${min_placed} --min-covered=${min_covered} "${target_file}")
endif()
foreach(argument "${ordwell_report}" ${arguments})
  ordwell_append_argument(command "${argument}")
endforeach()
ordwell_run("${command}" "the order of ${target} is not as wanted, or not to be told: see above")
