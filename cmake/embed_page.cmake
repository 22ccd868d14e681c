# Puts the parts of the report's page together and writes its bytes as a C++ initialiser: string
# literals of this length are too long for some compilers.
#
#   cmake -DFROM=cpp/report/page -DTO=page_bytes.inc -P cmake/embed_page.cmake
foreach(part page.html style.css script.js)
  file(READ ${FROM}/${part} hex HEX)
  string(HEX "@STYLE@" style_mark)
  string(HEX "@SCRIPT@" script_mark)
  if(part STREQUAL page.html)
    set(page ${hex})
  elseif(part STREQUAL style.css)
    string(REPLACE ${style_mark} ${hex} page ${page})
  else()
    string(REPLACE ${script_mark} ${hex} page ${page})
  endif()
endforeach()
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${page}")
string(REGEX REPLACE ",$" "" bytes "${bytes}")
string(REPEAT "0x..," 16 sixteen)
string(REGEX REPLACE "(${sixteen})" "\\1\n" bytes "${bytes}")
file(WRITE ${TO} "${bytes}\n")
