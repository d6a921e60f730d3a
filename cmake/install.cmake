# Installation and the Debian package: the program in sbin, its manual page in
# section 8, and the boot-time service unit.
include(GNUInstallDirs)

install(TARGETS kavsetup RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES man/kavsetup.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# The unit names the program by its installed path, and `cmake --install
# --prefix` may change the prefix after configuration, so the unit's ExecStart
# is written when installing. packaging/kavsetup.service itself names
# /usr/sbin/kavsetup, the program's place on a device image.
set(KAVSETUP_SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE STRING
    "Directory of the service unit, relative to the install prefix")
install(CODE "
  set(kavsetup_unit_source \"${PROJECT_SOURCE_DIR}/packaging/kavsetup.service\")
  set(kavsetup_unit_written \"${PROJECT_BINARY_DIR}/kavsetup.service\")
  set(kavsetup_sbindir \"${CMAKE_INSTALL_SBINDIR}\")
  set(kavsetup_unit_dir \"${KAVSETUP_SYSTEMD_UNIT_DIR}\")
")
install(CODE [[
  if(NOT IS_ABSOLUTE "${kavsetup_sbindir}")
    set(kavsetup_sbindir "${CMAKE_INSTALL_PREFIX}/${kavsetup_sbindir}")
  endif()
  if(NOT IS_ABSOLUTE "${kavsetup_unit_dir}")
    set(kavsetup_unit_dir "${CMAKE_INSTALL_PREFIX}/${kavsetup_unit_dir}")
  endif()
  file(READ "${kavsetup_unit_source}" unit)
  string(FIND "${unit}" "\nExecStart=/usr/sbin/kavsetup\n" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${kavsetup_unit_source} has no line ExecStart=/usr/sbin/kavsetup")
  endif()
  string(REPLACE "\nExecStart=/usr/sbin/kavsetup\n"
         "\nExecStart=${kavsetup_sbindir}/kavsetup\n" written "${unit}")
  file(WRITE "${kavsetup_unit_written}" "${written}")
  file(INSTALL "${kavsetup_unit_written}" DESTINATION "${kavsetup_unit_dir}")
]])

set(CPACK_PACKAGE_NAME kavsetup)
set(CPACK_PACKAGE_VENDOR "kavsetup developers")
set(CPACK_PACKAGE_CONTACT "kavsetup developers" CACHE STRING
    "Maintainer field of the Debian package")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "boot-time choice of the time zone data set and repair of its links")
set(CPACK_PACKAGE_DESCRIPTION
    "kavsetup runs once at every boot and points the time zone links under
/var/db/timezone at the newest compatible time zone data set, falling back
to the system partition's data, and repairs the local time link.")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/packaging/postinst;${PROJECT_SOURCE_DIR}/packaging/prerm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
