# What is installed, and where: there are two layouts.
#
# The installation tree is the program's own place. bin/cpp finds vex/ beside bin/, whatever the
# directory above is called, so a tree can be moved and there can be several. With CPP_TREE empty
# the prefix is the tree; the presets and the archives have it so.
#
# In a system's own directories no file may be called cpp, because the system's preprocessor is.
# There the tree stands in a directory of its own, CPP_TREE, and the prefix gets a link vex-cpp to
# the program. Everything outside the tree goes where GNUInstallDirs says.
#
# A component is what has one root in every package: `program` and `tree`, `documents`, `share` (files
# that other programs look for), `share_plain` (those that Debian wants in another form or place) and
# `system` (the link). packages.cmake puts them together.
include(GNUInstallDirs)
set(CPP_TREE "${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME}" CACHE STRING
    "Directory of the installation tree below the prefix; empty: the prefix is the tree")

set(system_tree ${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME})
if(CPP_TREE STREQUAL "")
  set(tree .)
  set(documents .)
  set(unless_tree EXCLUDE_FROM_ALL)
  set(deb_tree ${system_tree})
  set(deb_documents ${CMAKE_INSTALL_DOCDIR})
else()
  set(system_tree ${CPP_TREE})
  set(tree ${CPP_TREE})
  set(documents ${CMAKE_INSTALL_DOCDIR})
  set(unless_tree "")
endif()

# From the program to the message manual, which its reports lead to.
function(manual_below tree documents name)
  cmake_path(ABSOLUTE_PATH tree BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
  cmake_path(ABSOLUTE_PATH documents BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
  file(RELATIVE_PATH path ${tree}/bin ${documents}/docs/messages.html)
  target_compile_definitions(report PRIVATE ${name}="${path}")
endfunction()
manual_below(${tree} ${documents} CPP_MANUAL)
manual_below(${system_tree} ${CMAKE_INSTALL_DOCDIR} CPP_DEB_MANUAL)

install(TARGETS cpp RUNTIME DESTINATION ${tree}/bin COMPONENT program)
# Its own message file says what the built-in catalogue says. An installed program that finds one
# here does not look for others where it happens to run.
file(STRINGS common/version.h stamp REGEX "build_stamp =")
string(REGEX MATCH "[0-9]+" stamp "${stamp}")
install(FILES common/builtin_catalogue.msgs DESTINATION ${tree}/vex/dat RENAME ${stamp}_en.msgs
        COMPONENT tree)
install(DIRECTORY DESTINATION ${tree}/vex/include COMPONENT tree)
install(PROGRAMS tools/merge_reports.py DESTINATION ${tree}/tools COMPONENT tree)
install(DIRECTORY cpp/report/page DESTINATION ${tree}/tools COMPONENT tree)

# The documents lie as they do in the sources, so that their links lead to each other here, too.
install(FILES ARCHITECTURE.md CHANGELOG.md CONTRIBUTING.md LICENSE NOTICES.md README.md
        DESTINATION ${documents} COMPONENT documents)
install(DIRECTORY docs DESTINATION ${documents} COMPONENT documents FILES_MATCHING
        PATTERN *.md PATTERN *.html)
install(DIRECTORY licenses DESTINATION ${documents} COMPONENT documents)
install(FILES examples/udf_styles.css DESTINATION ${documents}/examples COMPONENT documents)
install(DIRECTORY examples/firmware DESTINATION ${documents}/examples COMPONENT documents)

install(FILES docs/vex-cpp.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT share_plain)
install(FILES extras/completions/_vex-cpp
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT share_plain)
install(FILES extras/completions/vex-cpp.bash RENAME vex-cpp
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT share)
install(FILES extras/completions/vex-cpp.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT share)
install(FILES extras/vim/compiler/vex_cpp.vim
        DESTINATION ${CMAKE_INSTALL_DATADIR}/vim/vimfiles/compiler COMPONENT share)
install(FILES extras/emacs/vex-cpp.el
        DESTINATION ${CMAKE_INSTALL_DATADIR}/emacs/site-lisp COMPONENT share)
install(FILES cmake/CppPreprocess.cmake RENAME CppPreprocessConfig.cmake
        DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake/CppPreprocess COMPONENT share)
install(FILES extras/vscode/package.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME}/vscode COMPONENT share)

if(NOT WIN32)
  cmake_path(ABSOLUTE_PATH system_tree BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
             OUTPUT_VARIABLE full_tree)
  file(RELATIVE_PATH program ${CMAKE_INSTALL_FULL_BINDIR} ${full_tree}/bin/cpp)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/system)
  file(CREATE_LINK ${program} ${PROJECT_BINARY_DIR}/system/${PROJECT_NAME} SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/system/${PROJECT_NAME}
          DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT system ${unless_tree})
endif()
