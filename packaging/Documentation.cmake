# SPDX-License-Identifier: GPL-3.0-or-later
# The Debian changelog, the manual pages and the function that builds a
# command-line tool's manual page. Included before the tools, so that each
# tool's CMakeLists.txt adds its own page with one call.

include(GNUInstallDirs)

# The newest changelog entry names the version and the release date. The
# version must be the project's, so a release cannot ship a stale changelog;
# the date goes into the manual pages, so a rebuild gives the same bytes.
set(VELTRANE_CHANGELOG ${CMAKE_CURRENT_LIST_DIR}/changelog)
file(STRINGS ${VELTRANE_CHANGELOG} entry_head LIMIT_COUNT 1)
if(NOT entry_head MATCHES "^veltrane \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/changelog starts with '${entry_head}'; "
    "add an entry for version ${PROJECT_VERSION} at its top")
endif()
file(STRINGS ${VELTRANE_CHANGELOG} entry_trailer REGEX "^ -- " LIMIT_COUNT 1)
string(REGEX REPLACE "^ -- .*>  " "" VELTRANE_RELEASE_DATE "${entry_trailer}")
execute_process(COMMAND env LC_ALL=C date -u -d "${VELTRANE_RELEASE_DATE}" "+%s;%B %Y"
  OUTPUT_VARIABLE release_stamp OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT release_stamp MATCHES "^[0-9]+;")
  message(FATAL_ERROR "packaging/changelog: cannot read the date '${VELTRANE_RELEASE_DATE}'")
endif()
list(GET release_stamp 0 VELTRANE_RELEASE_EPOCH)
list(GET release_stamp 1 VELTRANE_RELEASE_MONTH)

# Compresses SOURCE the way Debian wants (gzip -9n: no name, no time stamp)
# into OUTPUT in the build tree as part of the default build.
function(veltrane_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND gzip -9nc ${source} > ${output}
    DEPENDS ${source})
  get_filename_component(name ${output} NAME)
  add_custom_target(gzip-${name} ALL DEPENDS ${output})
endfunction()

# The program's own page is roff with the version and date filled in.
configure_file(${PROJECT_SOURCE_DIR}/app/veltrane.1.in ${PROJECT_BINARY_DIR}/veltrane.1 @ONLY)
veltrane_gzip(${PROJECT_BINARY_DIR}/veltrane.1 ${PROJECT_BINARY_DIR}/veltrane.1.gz)
install(FILES ${PROJECT_BINARY_DIR}/veltrane.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

veltrane_gzip(${VELTRANE_CHANGELOG} ${PROJECT_BINARY_DIR}/changelog.gz)
install(FILES ${PROJECT_BINARY_DIR}/changelog.gz ${CMAKE_CURRENT_LIST_DIR}/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/veltrane)

find_program(VELTRANE_HELP2MAN help2man)
if(NOT VELTRANE_HELP2MAN)
  message(WARNING "help2man not found: the command-line tools get no manual pages")
endif()

# veltrane_manpage(TARGET INCLUDE): the section-1 manual page of the
# command-line tool TARGET, written by help2man from the built tool's --help
# and --version, so the page lists exactly the options the tool takes; the
# help2man include file INCLUDE, kept beside the tool, adds the name line and
# the sections --help lacks (files, exit status, examples).
function(veltrane_manpage target include)
  if(NOT VELTRANE_HELP2MAN)
    return()
  endif()
  get_filename_component(include ${include} ABSOLUTE)
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=${VELTRANE_RELEASE_EPOCH}
      QT_QPA_PLATFORM=offscreen ${VELTRANE_HELP2MAN} --no-info --section=1
      --include=${include} --output=${page} $<TARGET_FILE:${target}>
    DEPENDS ${target} ${include}
    VERBATIM)
  veltrane_gzip(${page} ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()
