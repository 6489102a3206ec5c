# What `cmake --install` lays out, and the Debian package made from it (scripts/package.sh).
include(GNUInstallDirs)

install(TARGETS wrenhaven RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The settings program beside the agent: the agent starts it from its own folder.
install(TARGETS wrenhaven-settings RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Shipped inactive: enabling it is the administrator's choice (see the file and wrenhaven(1)).
install(FILES data/70-wrenhaven-input.rules DESTINATION ${CMAKE_INSTALL_DATADIR}/wrenhaven/udev)
# The brand mark in every size the desktops ask for, drawn at build time (src/tools).
install(DIRECTORY ${WRENHAVEN_ICON_DIR} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons)
install(FILES data/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/wrenhaven)
# The typefaces compiled into both programs come with their licences.
install(FILES assets/fonts/InstrumentSans-OFL.txt assets/fonts/GeistMono-OFL.txt assets/fonts/NotoSansSymbols-OFL.txt
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/wrenhaven/fonts)
install(CODE "
  set(WRENHAVEN_SOURCE_DIR \"${PROJECT_SOURCE_DIR}\")
  set(WRENHAVEN_STAGING_DIR \"${PROJECT_BINARY_DIR}/install-data\")
  set(WRENHAVEN_BINDIR \"${CMAKE_INSTALL_BINDIR}\")
  set(WRENHAVEN_DATADIR \"${CMAKE_INSTALL_DATADIR}\")
  set(WRENHAVEN_MANDIR \"${CMAKE_INSTALL_MANDIR}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  set(WRENHAVEN_BUILD_NUMBER \"${WRENHAVEN_BUILD_NUMBER}\")")
install(SCRIPT cmake/InstallConfigured.cmake)

set(CPACK_PACKAGE_NAME wrenhaven)
set(CPACK_PACKAGE_VENDOR "Quintel Barrows")
set(CPACK_PACKAGE_CONTACT "Wrenhaven developers <wrenhaven@quintelbarrows.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tray agent that makes Bluetooth headphones behave")
set(CPACK_PACKAGE_DESCRIPTION "One click connects or disconnects Bluetooth headphones and moves the
sound to them. While they are connected, Wrenhaven keeps them in their
music profile by holding the default input on the computer's own
microphone, sends the media keys to the player used last, gives every
application its own volume and shows battery levels.")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${WRENHAVEN_BUILD_NUMBER})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Qt loads its platform plugins at run time, so dpkg-shlibdeps cannot see them. Where a release
# splits them out of libqt6gui6, libqt6gui6 only recommends them, and an install without
# recommends would draw nothing. The package test checks that every plugin the programs load comes
# with these dependencies alone.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio, bluez")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
