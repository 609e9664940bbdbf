# What `cmake --install` puts where a desktop program lives, and the Debian package made of it
# (`cpack -G DEB` in the build folder). The views are compiled into the executable; the Qt
# libraries and QML modules come from the system.

set(launcher_desktop ${PROJECT_SOURCE_DIR}/Vantor_Launch/resources/desktop)

install(TARGETS vantor-launcher RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${launcher_desktop}/${LAUNCHER_APP_ID}.desktop
  DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)

# The entry is D-Bus activatable, so the session bus must know how to start the launcher when
# none runs. Written at install time: the service names the launcher by the prefix it is installed
# under, which the package sets only then.
set(launcher_service "${CMAKE_INSTALL_DATADIR}/dbus-1/services/${LAUNCHER_APP_ID}.service")
install(CODE "
  set(service \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${launcher_service}\")
  file(WRITE \"\${service}\" \"[D-BUS Service]\\nName=${LAUNCHER_APP_ID}\\nExec=\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/vantor-launcher\\n\")
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${service}\")
")
configure_file(${launcher_desktop}/${LAUNCHER_APP_ID}.metainfo.xml.in
  ${CMAKE_BINARY_DIR}/desktop/${LAUNCHER_APP_ID}.metainfo.xml @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/desktop/${LAUNCHER_APP_ID}.metainfo.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# The icon at the sizes of the hicolor theme, drawn from the scalable one at build time.
find_program(LAUNCHER_RSVG_CONVERT rsvg-convert REQUIRED)
set(launcher_icon ${launcher_desktop}/${LAUNCHER_APP_ID}.svg)
set(launcher_icon_pngs)
foreach(size IN ITEMS 16 22 24 32 48 64 128 256 512)
  set(png ${CMAKE_BINARY_DIR}/desktop/icons/${size}x${size}/${LAUNCHER_APP_ID}.png)
  add_custom_command(OUTPUT ${png}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/desktop/icons/${size}x${size}
    COMMAND ${LAUNCHER_RSVG_CONVERT} --width ${size} --height ${size} --output ${png} ${launcher_icon}
    DEPENDS ${launcher_icon} VERBATIM)
  list(APPEND launcher_icon_pngs ${png})
  install(FILES ${png} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()
install(FILES ${launcher_icon} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)

# Manual pages are kept compressed.
find_program(LAUNCHER_GZIP gzip REQUIRED)
set(launcher_manual ${CMAKE_BINARY_DIR}/desktop/vantor-launcher.1.gz)
add_custom_command(OUTPUT ${launcher_manual}
  COMMAND ${CMAKE_COMMAND} -E copy ${launcher_desktop}/vantor-launcher.1 ${CMAKE_BINARY_DIR}/desktop
  COMMAND ${LAUNCHER_GZIP} -9 --no-name --force ${CMAKE_BINARY_DIR}/desktop/vantor-launcher.1
  DEPENDS ${launcher_desktop}/vantor-launcher.1 VERBATIM)
install(FILES ${launcher_manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

add_custom_target(launcher-desktop-files ALL DEPENDS ${launcher_icon_pngs} ${launcher_manual})

# The Debian package. Its dependencies are the libraries the executable links (dpkg-shlibdeps)
# and the packages of the QML modules the views import (DebianQmlDepends.cmake, when the package
# is made). No maintainer scripts: the triggers of desktop-file-utils (the scheme handler's
# cache), hicolor-icon-theme and man-db refresh their caches when the package's files come and go.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vantor-launcher)
set(CPACK_PACKAGE_VENDOR Halvex)
set(CPACK_PACKAGE_CONTACT "Halvex <launcher@halvex.co.nz>" CACHE STRING
  "Maintainer of the launcher's packages")
set(CPACK_PACKAGE_HOMEPAGE_URL https://${LAUNCHER_WEBSITE_HOST}/)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Companion for Vantor Director and Vantor Creator")
set(CPACK_PACKAGE_DESCRIPTION [[
Vantor Launcher finds the installed Vantor Director, shows its version and
whether it runs, and installs its verified updates. It signs in to the Vantor
website account in the web browser and installs Content Packs into the content
store that Vantor Creator reads.]])
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The web browser for sign-in is opened with xdg-open.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS xdg-utils)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/DebianQmlDepends.cmake)
# Every folder of views, the features' own included.
set(CPACK_LAUNCHER_QML_SOURCES ${PROJECT_SOURCE_DIR}/Vantor_Launch)
set(CPACK_LAUNCHER_QML_IMPORT_PATH ${QT6_INSTALL_PREFIX}/${QT6_INSTALL_QML})
set(CPACK_LAUNCHER_QMLIMPORTSCANNER ${QT6_INSTALL_PREFIX}/${QT6_INSTALL_LIBEXECS}/qmlimportscanner)
include(CPack)
