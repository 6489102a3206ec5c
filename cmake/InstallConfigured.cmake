# Runs at install time: the files that name where things are installed are made for the prefix in
# use then (a package is staged under /usr whatever the build was configured with).
# Set by the caller: WRENHAVEN_SOURCE_DIR, WRENHAVEN_STAGING_DIR, WRENHAVEN_BINDIR, WRENHAVEN_DATADIR,
# WRENHAVEN_MANDIR, PROJECT_VERSION, WRENHAVEN_BUILD_NUMBER.
set(WRENHAVEN_AGENT_BINARY "${CMAKE_INSTALL_PREFIX}/${WRENHAVEN_BINDIR}/wrenhaven")
set(WRENHAVEN_SETTINGS_BINARY "${CMAKE_INSTALL_PREFIX}/${WRENHAVEN_BINDIR}/wrenhaven-settings")
set(WRENHAVEN_UDEV_RULE "${CMAKE_INSTALL_PREFIX}/${WRENHAVEN_DATADIR}/wrenhaven/udev/70-wrenhaven-input.rules")
set(data "${WRENHAVEN_SOURCE_DIR}/data")
set(out "${WRENHAVEN_STAGING_DIR}")

function(configured template name destination)
  configure_file("${template}" "${out}/${name}" @ONLY)
  file(INSTALL "${out}/${name}" DESTINATION "${CMAKE_INSTALL_PREFIX}/${destination}")
endfunction()
# Debian wants manual pages and the changelog compressed.
function(compressed template name destination)
  configure_file("${template}" "${out}/${name}" @ONLY)
  file(ARCHIVE_CREATE OUTPUT "${out}/${name}.gz" PATHS "${out}/${name}" FORMAT raw COMPRESSION GZip
       COMPRESSION_LEVEL 9)
  file(INSTALL "${out}/${name}.gz" DESTINATION "${CMAKE_INSTALL_PREFIX}/${destination}")
endfunction()

configured("${data}/com.quintelbarrows.wrenhaven.desktop.in" com.quintelbarrows.wrenhaven.desktop
           "${WRENHAVEN_DATADIR}/applications")
# The entry "Start at Login" puts into the user's autostart folder.
configured("${data}/wrenhaven-autostart.desktop.in" autostart/com.quintelbarrows.wrenhaven.desktop
           "${WRENHAVEN_DATADIR}/wrenhaven/autostart")
# systemd looks for user units under lib/, whatever the library folder of the architecture is.
configured("${data}/wrenhaven.service.in" wrenhaven.service lib/systemd/user)
compressed("${WRENHAVEN_SOURCE_DIR}/docs/man/wrenhaven.1" wrenhaven.1 "${WRENHAVEN_MANDIR}/man1")
# The settings program, shown in the menus.
configured("${data}/com.quintelbarrows.wrenhaven.settings.desktop.in" com.quintelbarrows.wrenhaven.settings.desktop
           "${WRENHAVEN_DATADIR}/applications")
compressed("${WRENHAVEN_SOURCE_DIR}/docs/man/wrenhaven-settings.1" wrenhaven-settings.1 "${WRENHAVEN_MANDIR}/man1")
compressed("${data}/changelog.in" changelog.Debian "${WRENHAVEN_DATADIR}/doc/wrenhaven")
