# The daemon as a system service: the system bus starts it on the first call to its name (through
# systemd when the bus runs under systemd), and it ends itself when idle.
include(GNUInstallDirs)

# Relative to the prefix unless given absolute; systemd reads both below /usr and /usr/local.
set(VYX_SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE STRING "Directory of systemd system units")
set(VYX_TMPFILES_DIR "lib/tmpfiles.d" CACHE STRING "Directory of systemd-tmpfiles configuration")
set(VYX_DBUS_POLICY_DIR "${CMAKE_INSTALL_DATADIR}/dbus-1/system.d")
set(VYX_DBUS_SERVICE_DIR "${CMAKE_INSTALL_DATADIR}/dbus-1/system-services")

configure_file(dist/vyxstaged.service.in dist/vyxstaged.service @ONLY)
configure_file(dist/com.velto.vyxService.service.in dist/com.velto.vyxService.service @ONLY)

# Each program comes with its manual page, in the component it belongs to.
foreach(page vyxstaged.8 vyxctl.1 vyxsim.1)
  configure_file(doc/${page}.in doc/${page} @ONLY)
endforeach()

install(TARGETS vyxstaged RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR} COMPONENT daemon)
install(FILES ${CMAKE_BINARY_DIR}/doc/vyxstaged.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8
        COMPONENT daemon)
if(TARGET vyxctl)
  install(TARGETS vyxctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT daemon)
  install(FILES ${CMAKE_BINARY_DIR}/doc/vyxctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT daemon)
endif()
if(TARGET vyxsim)
  install(TARGETS vyxsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)
  install(FILES tools/vyxsim/web/index.html tools/vyxsim/web/app.js tools/vyxsim/web/style.css
          DESTINATION ${CMAKE_INSTALL_DATADIR}/vyxsim/web COMPONENT simulator)
  install(FILES ${CMAKE_BINARY_DIR}/doc/vyxsim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT simulator)
endif()
install(FILES ${CMAKE_BINARY_DIR}/dist/vyxstaged.service
        DESTINATION ${VYX_SYSTEMD_UNIT_DIR} COMPONENT daemon)
install(FILES dist/vyxstaged.tmpfiles
        DESTINATION ${VYX_TMPFILES_DIR} RENAME vyxstaged.conf COMPONENT daemon)
install(FILES dist/com.velto.vyxService.conf
        DESTINATION ${VYX_DBUS_POLICY_DIR} COMPONENT daemon)
install(FILES ${CMAKE_BINARY_DIR}/dist/com.velto.vyxService.service
        DESTINATION ${VYX_DBUS_SERVICE_DIR} COMPONENT daemon)
