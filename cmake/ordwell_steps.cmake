# What the steps of the build share: the settings and files of a target (OrdwellOrderFunctions.cmake says what they are), running
# a command, and linking the plain program. The configure knows linkers by it, too.

# Reads the settings of a target, for one configuration, into variables.
macro(ordwell_read_settings folder)
  if(NOT EXISTS "${folder}/settings.cmake")
    message(FATAL_ERROR "no settings in ${folder}: configure the project anew")
  endif()
  include("${folder}/settings.cmake")
endmacro()

# Sets `resolved` to the file's path with symbolic links in its folder followed: build tools run in the real folder, while the
# settings have the one that the user named.
function(ordwell_resolve_folder file resolved)
  get_filename_component(file "${file}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
  get_filename_component(folder "${file}" DIRECTORY)
  get_filename_component(folder "${folder}" REALPATH)
  get_filename_component(name "${file}" NAME)
  set(${resolved} "${folder}/${name}" PARENT_SCOPE)
endfunction()

# Appends an argument to the CMake code of a command, whatever characters it has.
function(ordwell_append_argument code argument)
  set(${code} "${${code}} [====[${argument}]====]" PARENT_SCOPE)
endfunction()

# Runs the command of this code, which begins with COMMAND; on failure the step ends with the message, after what the command said itself.
function(ordwell_run command message)
  cmake_language(EVAL CODE "execute_process(${command} RESULT_VARIABLE status)")
  if(NOT status MATCHES "^-?[0-9]+$") # it did not start, or a signal ended it
    message(FATAL_ERROR "${message}: ${status}")
  elseif(NOT status EQUAL 0)
    message(FATAL_ERROR "${message}")
  endif()
endfunction()

# Sets `found` to the linker that answers so to --version: lld, gold, ld or mold; empty for any other.
function(ordwell_name_linker answer)
  set(found "")
  if(answer MATCHES "(^|[ \n])mold [0-9]")
    set(found mold)
  elseif(answer MATCHES "LLD [0-9]")
    set(found lld)
  elseif(answer MATCHES "GNU gold")
    set(found gold)
  elseif(answer MATCHES "GNU ld")
    set(found ld)
  endif()
  set(found "${found}" PARENT_SCOPE)
endfunction()

# Links the plain program by the command that was written down when the target was linked, unless it is newer than that. The
# file has the target's name, and its library the name that programs look for.
function(ordwell_link_plain)
  get_filename_component(plain_folder "${plain_file}" DIRECTORY)
  file(MAKE_DIRECTORY "${plain_folder}")
  file(LOCK "${state}/plain.lock" GUARD FUNCTION)
  if(EXISTS "${plain_file}" AND NOT "${state}/command.cmake" IS_NEWER_THAN "${plain_file}")
    return()
  endif()
  include("${state}/command.cmake")
  ordwell_run("${plain_command} WORKING_DIRECTORY [====[${link_folder}]====]" "the plain ${target} was not linked")
  if(soname)
    get_filename_component(name "${plain_file}" NAME)
    if(NOT soname STREQUAL name)
      file(CREATE_LINK "${name}" "${plain_folder}/${soname}" SYMBOLIC)
    endif()
  endif()
endfunction()

# Sets `existing` to the files of the list that exist.
function(ordwell_keep_existing files)
  set(existing "")
  foreach(file IN LISTS ${files})
    if(EXISTS "${file}")
      list(APPEND existing "${file}")
    endif()
  endforeach()
  set(existing "${existing}" PARENT_SCOPE)
endfunction()

# Imports profiles, as seen by the plain program, into a CSV.
function(ordwell_import_profiles profiles csv)
  set(command "COMMAND")
  foreach(argument "${ordwell_import}" --quiet "--binary=${plain_file}" -o "${csv}" ${profiles})
    ordwell_append_argument(command "${argument}")
  endforeach()
  ordwell_run("${command}" "the profiles of ${target} were not imported")
endfunction()
