# Writes build_info.h, the build parameters of the build number, into the build folder; run at every build, it touches the
# file only when something changed. Date and hour (UTC) come from SOURCE_DATE_EPOCH or the commit, the branch from the
# repository; without them they are fixed, so that the same sources always give the same line.
#
#   cmake -D SOURCE=... -D OUTPUT=... -P build_info.cmake
cmake_minimum_required(VERSION 3.25)

set(epoch "$ENV{SOURCE_DATE_EPOCH}")
set(branch "")
find_program(GIT git)
if(GIT)
  if(epoch STREQUAL "")
    execute_process(COMMAND ${GIT} -C ${SOURCE} log -1 --format=%ct
      OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  endif()
  execute_process(COMMAND ${GIT} -C ${SOURCE} symbolic-ref --short HEAD
    OUTPUT_VARIABLE branch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT epoch MATCHES "^[0-9]+$")
  set(epoch 946684800) # 2000-01-01
endif()
if(NOT branch MATCHES "^[A-Za-z0-9._/-]+$")
  set(branch "main")
endif()
set(ENV{SOURCE_DATE_EPOCH} ${epoch})
string(TIMESTAMP date "%Y;%m;%d;%H" UTC)
list(TRANSFORM date REPLACE "^0(.)" "\\1") # no octal numbers
list(GET date 0 year)
list(GET date 1 month)
list(GET date 2 day)
list(GET date 3 hour)
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT
"#define BUILD_YEAR @year@
#define BUILD_MONTH @month@
#define BUILD_DAY @day@
#define BUILD_HOUR @hour@
#define BUILD_BRANCH \"@branch@\"
" @ONLY)
