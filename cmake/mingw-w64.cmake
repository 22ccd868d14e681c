# Cross-building the Windows program on Linux. The posix-threads flavour is the one whose C++
# library is complete; it is named when it is installed, else the unmarked compiler is used.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(mingw x86_64-w64-mingw32)

find_program(mingw_c NAMES ${mingw}-gcc-posix ${mingw}-gcc REQUIRED)
find_program(mingw_cxx NAMES ${mingw}-g++-posix ${mingw}-g++ REQUIRED)
set(CMAKE_C_COMPILER ${mingw_c})
set(CMAKE_CXX_COMPILER ${mingw_cxx})
set(CMAKE_RC_COMPILER ${mingw}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${mingw})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(wine NAMES wine64 wine)
if(wine)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${wine})
endif()
