# Makes a header of a text file: the constant NAME with its bytes, in pieces that every compiler takes.
#
#   cmake -D INPUT=report/page.html -D OUTPUT=page_html.h -D NAME=page_html -P embed.cmake
cmake_minimum_required(VERSION 3.25)

file(READ ${INPUT} text)
string(LENGTH "${text}" length)
set(pieces "")
set(start 0)
while(start LESS length)
  string(SUBSTRING "${text}" ${start} 8000 piece)
  string(APPEND pieces "R\"embedded(${piece})embedded\"\n")
  math(EXPR start "${start} + 8000")
endwhile()
file(WRITE ${OUTPUT} "#pragma once\n\ninline constexpr char ${NAME}[] =\n${pieces};\n")
