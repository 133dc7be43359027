# SPDX-License-Identifier: GPL-3.0-or-later
# Install rules and the Debian package. Included at the end of the top-level
# CMakeLists.txt, once every target exists.
#
#   cmake --install build/release --prefix /usr/local   # install in place
#   cpack --config build/release/CPackConfig.cmake      # build the .deb

include(GNUInstallDirs)

install(TARGETS veltrane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET simulate-listener)
  install(TARGETS simulate-listener RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET veltrane-summary)
  install(TARGETS veltrane-summary RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# The menu entry and its icon, under the names the freedesktop menu and icon
# theme look up (the entry's Icon= key is the icon's base name). The PNGs are
# rendered from the SVG with ImageMagick:
#   convert -background none veltrane.svg [-resize 48x48] -strip -depth 8 OUT.png
set(VELTRANE_ICON_DIR ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
# Menu entry and AppStream metadata share the application's reverse-DNS id,
# which software centres use to tie them together.
set(VELTRANE_APP_ID invalid.quorvan_lab.veltrane)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/${VELTRANE_APP_ID}.desktop
  DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/${VELTRANE_APP_ID}.metainfo.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/veltrane.svg
  DESTINATION ${VELTRANE_ICON_DIR}/scalable/apps)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/veltrane-256.png
  DESTINATION ${VELTRANE_ICON_DIR}/256x256/apps RENAME veltrane.png)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/veltrane-48.png
  DESTINATION ${VELTRANE_ICON_DIR}/48x48/apps RENAME veltrane.png)

set(VELTRANE_PACKAGE_MAINTAINER "Quorvan Lab <veltrane@quorvan-lab.invalid>"
  CACHE STRING "Maintainer field of the Debian package (name and e-mail)")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veltrane)
set(CPACK_PACKAGE_VENDOR "Quorvan Lab")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${VELTRANE_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "adaptive threshold measurement for the hearing laboratory")
# Debian wants the long description in lines of at most 80 characters.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
  "Veltrane measures a listener's threshold for a drop in the carrier"
  "frequency of a tone, or for a sinusoidal amplitude modulation of a tone or"
  "a noise, with a four-interval, two-alternative forced-choice task and a"
  "weighted up-down staircase. It synthesises every sound itself, plays it"
  "through the default audio output, draws waveforms, spectra and the"
  "staircase trend, and writes the trials to a tab-separated file.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${VELTRANE_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# The program needs these Qt modules at the version it is built against, the
# plugins package, which holds the PulseAudio back end Qt loads at run time
# where no linker sees it, and the sound server's client library, which reads
# the output's volume. dpkg-shlibdeps (from dpkg-dev) adds whatever
# else the binaries link, at the minimum version their symbols need; without
# it the Qt packages above still pull in Qt's own dependencies.
set(VELTRANE_QT_DEB_VERSION "(>= ${Qt5_VERSION_MAJOR}.${Qt5_VERSION_MINOR})")
string(JOIN ", " CPACK_DEBIAN_PACKAGE_DEPENDS
  "libqt5widgets5 ${VELTRANE_QT_DEB_VERSION}"
  "libqt5charts5 ${VELTRANE_QT_DEB_VERSION}"
  "libqt5multimedia5 ${VELTRANE_QT_DEB_VERSION}"
  "libqt5multimedia5-plugins ${VELTRANE_QT_DEB_VERSION}"
  "libpulse0")
find_program(VELTRANE_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(VELTRANE_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
# The plugin plays through a PulseAudio server; Debian 12 desktops run either
# PipeWire's PulseAudio server or PulseAudio itself.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio")

include(CPack)
