# The packages that cpack makes of a build: a tar.gz and a zip of the installation tree, and a deb.
# (install.cmake tells the layouts and the components that are put together here.)
#
# The zip is for both systems: it carries the Windows program beside the Linux one where the preset
# `windows` has been built, so one archive serves a team that has both.
set(CPP_CONTACT "The cpp authors <cpp-authors@vex-cpp.invalid>" CACHE STRING
    "Maintainer of the deb; the reserved domain says that there is no mailbox")
set(CPACK_PACKAGE_VENDOR "The cpp authors")
set(CPACK_PACKAGE_CONTACT ${CPP_CONTACT})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/package_contents.cmake)

set(CPACK_GENERATOR ZIP)
if(NOT WIN32)
  set(windows_build ${PROJECT_SOURCE_DIR}/build/windows)
  find_program(CPP_GZIP gzip)
  find_program(CPP_DPKG dpkg)
  mark_as_advanced(CPP_GZIP CPP_DPKG)
  list(PREPEND CPACK_GENERATOR TGZ)
  if(CPP_GZIP AND CPP_DPKG)
    list(APPEND CPACK_GENERATOR DEB)
  endif()
endif()

# ---- The deb, with what Debian's policy asks for ----

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS python3)  # for the script that merges reports
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"The first pass of a compiler toolchain: directives, macros, line markers,
dependency rules for make and an HTML report of every macro.
.
It stands beside the system's own preprocessor; its command is vex-cpp.")
if(NOT CPP_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

if("DEB" IN_LIST CPACK_GENERATOR)
  set(debian ${PROJECT_BINARY_DIR}/debian)
  configure_file(packaging/changelog.in ${debian}/changelog @ONLY)
  foreach(file ${PROJECT_SOURCE_DIR}/docs/vex-cpp.1 ${debian}/changelog)
    cmake_path(GET file FILENAME name)
    # Without the time in it: the same file always gives the same bytes.
    add_custom_command(OUTPUT ${debian}/${name}.gz COMMAND ${CPP_GZIP} -9nc ${file} > ${name}.gz
                       DEPENDS ${file} WORKING_DIRECTORY ${debian} VERBATIM)
    list(APPEND compressed ${debian}/${name}.gz)
  endforeach()
  add_custom_target(debian ALL DEPENDS ${compressed})

  install(FILES ${debian}/vex-cpp.1.gz
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT debian EXCLUDE_FROM_ALL)
  install(FILES extras/completions/_vex-cpp DESTINATION
          ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT debian EXCLUDE_FROM_ALL)
  install(FILES packaging/copyright ${debian}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${PROJECT_NAME} COMPONENT debian EXCLUDE_FROM_ALL)
  if(CPP_STATIC)
    install(FILES packaging/lintian-overrides RENAME ${PROJECT_NAME}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT debian EXCLUDE_FROM_ALL)
  endif()
endif()

configure_file(cmake/package_contents.cmake.in ${PROJECT_BINARY_DIR}/package_contents.cmake @ONLY)
include(CPack)
