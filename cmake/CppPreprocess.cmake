# Has the C sources of a target preprocessed by vex-cpp before they are compiled.
#
# Copy this file into a project and include it, or let find_package(CppPreprocess) find it where
# vex-cpp is installed. It defines one function, and the cache variable CPP_PREPROCESS_PROGRAM, the
# program.
#
#   cpp_preprocess(<target> [<option>...])
#
# Include directories and definitions reach vex-cpp as they would the compiler, the options follow
# them. The compiler gets the preprocessed text, which lies beside the object. Headers that change
# rebuild their users; a header that the build itself makes is named among the target's sources, as
# always.
#
# It works by a compiler launcher: this file again, run as a script with a compiler's command line. A
# launcher that the target has already, such as ccache, is run with the preprocessed text.
cmake_minimum_required(VERSION 3.20)

# ---- The script: cmake -P CppPreprocess.cmake PROGRAM OPTION... -- COMMAND...

# What follows an option of the compiler in the next word goes to vex-cpp behind the spelling that is
# named here; nothing is named for a word that neither gets, or that is put where it belongs below.
set(_CPP_PREPROCESS_-I -I)
set(_CPP_PREPROCESS_-D -D)
set(_CPP_PREPROCESS_-U -U)
set(_CPP_PREPROCESS_-isystem -I)
set(_CPP_PREPROCESS_-iquote -I)
set(_CPP_PREPROCESS_-MF --dep=)
set(_CPP_PREPROCESS_-MT --dep_target=)
set(_CPP_PREPROCESS_-MQ --dep_target=)
set(_CPP_PREPROCESS_-x "")
set(_CPP_PREPROCESS_-o "")
set(_CPP_PREPROCESS_-c "")

# Sorts the words of the compiler's command line from number `first` on. Leaves those for the
# preprocessor in `to_cpp`, and those that compile the preprocessed text in `to_compiler`.
function(_cpp_preprocess_sort first)
  set(to_cpp)
  set(to_compiler)
  set(option)  # the one that the next word belongs to
  math(EXPR last "${CMAKE_ARGC} - 1")
  foreach(n RANGE ${first} ${last})
    string(REPLACE ";" "\\;" word "${CMAKE_ARGV${n}}")
    if(option)
      set(given_${option} "${word}")
      if(_CPP_PREPROCESS_${option})
        list(APPEND to_cpp "${_CPP_PREPROCESS_${option}}${word}")
      endif()
      set(option)
    elseif(DEFINED _CPP_PREPROCESS_${word})
      set(option "${word}")
    elseif(word MATCHES "^-[IDU]")
      list(APPEND to_cpp "${word}")
    elseif(NOT word MATCHES "^-MM?[DP]$")
      list(APPEND to_compiler "${word}")
    endif()
  endforeach()
  set(to_cpp "${to_cpp}" "${given_-c}" -o "${given_-o}.i" PARENT_SCOPE)
  set(to_compiler "${to_compiler}" -o "${given_-o}" -c "${given_-o}.i" PARENT_SCOPE)
endfunction()

function(_cpp_preprocess_run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    list(GET ARGN 0 program)
    cmake_path(GET program FILENAME program)
    message(FATAL_ERROR "${program} ended with ${status}")
  endif()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  set(program)
  foreach(n RANGE 3 ${CMAKE_ARGC})
    if(CMAKE_ARGV${n} STREQUAL "--")
      math(EXPR first "${n} + 1")
      break()
    endif()
    string(REPLACE ";" "\\;" word "${CMAKE_ARGV${n}}")
    list(APPEND program "${word}")
  endforeach()
  _cpp_preprocess_sort(${first})
  _cpp_preprocess_run(${program} ${to_cpp})
  _cpp_preprocess_run(${to_compiler})
  return()
endif()

# ---- The module.

# The program of the prefix where this file is installed comes first. In an installation tree it is
# called cpp; anywhere else that would be the system's own preprocessor.
cmake_path(SET _prefix NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../..)
if(EXISTS ${_prefix}/vex/dat)
  find_program(CPP_PREPROCESS_PROGRAM NAMES cpp HINTS ${_prefix}/bin NO_DEFAULT_PATH)
endif()
find_program(CPP_PREPROCESS_PROGRAM NAMES vex-cpp HINTS ${_prefix}/bin
             DOC "The preprocessor that cpp_preprocess() runs")
if(CPP_PREPROCESS_PROGRAM)
  set(CppPreprocess_FOUND TRUE)
else()
  set(CppPreprocess_FOUND FALSE)
  set(CppPreprocess_NOT_FOUND_MESSAGE "vex-cpp is not installed; set CPP_PREPROCESS_PROGRAM")
endif()
set(_CPP_PREPROCESS_SCRIPT ${CMAKE_CURRENT_LIST_FILE})

function(cpp_preprocess target)
  if(NOT CPP_PREPROCESS_PROGRAM)
    message(FATAL_ERROR "cpp_preprocess: ${CppPreprocess_NOT_FOUND_MESSAGE}")
  endif()
  if(NOT CMAKE_GENERATOR MATCHES "Ninja|Makefiles")
    message(FATAL_ERROR "cpp_preprocess: ${CMAKE_GENERATOR} knows no compiler launchers")
  endif()
  get_target_property(launcher ${target} C_COMPILER_LAUNCHER)
  if(NOT launcher)
    set(launcher)
  endif()
  set_property(TARGET ${target} PROPERTY C_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -P ${_CPP_PREPROCESS_SCRIPT}
    ${CPP_PREPROCESS_PROGRAM} --markers=gcc --messages=gcc --delete_on_error ${ARGN} --
    ${launcher})
endfunction()
