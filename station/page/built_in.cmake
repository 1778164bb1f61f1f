# Writes files as a C++ table: cmake -DOUTPUT=FILE -DFILES=PATH=FILE|PATH=FILE... -P built_in.cmake
function(type_of path result)
  get_filename_component(extension "${path}" LAST_EXT)
  if(extension STREQUAL ".html")
    set(type "text/html; charset=utf-8")
  elseif(extension STREQUAL ".css")
    set(type "text/css; charset=utf-8")
  elseif(extension STREQUAL ".js")
    set(type "text/javascript; charset=utf-8")
  elseif(extension STREQUAL ".svg")
    set(type "image/svg+xml")
  elseif(extension STREQUAL ".png")
    set(type "image/png")
  else()
    message(FATAL_ERROR "${path}: no type is known for files like this")
  endif()
  set(${result} "${type}" PARENT_SCOPE)
endfunction()

set(arrays "")
set(table "")
set(number 0)
string(REPLACE "|" ";" FILES "${FILES}")
foreach(each IN LISTS FILES)
  string(REGEX MATCH "^([^=]+)=(.+)$" matched "${each}")
  set(path "${CMAKE_MATCH_1}")
  set(file "${CMAKE_MATCH_2}")
  type_of("${path}" type)
  file(READ "${file}" hex HEX)
  file(SHA256 "${file}" digest)
  string(SUBSTRING "${digest}" 0 32 digest)
  string(LENGTH "${hex}" size)
  math(EXPR size "${size} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND arrays "static const unsigned char FILE_${number}[] = {${bytes}0};\n")
  string(APPEND table "    {\"${path}\", \"${type}\", \"${digest}\", FILE_${number}, ${size}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE "${OUTPUT}" "// Made by built_in.cmake of the page's files.
#include \"station/page/files.h\"

namespace station::page
{

${arrays}
extern const File BUILT_IN[] = {
${table}    {nullptr, nullptr, nullptr, nullptr, 0},
};

} // namespace station::page
")
