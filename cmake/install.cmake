# Installation and the Debian package: kavsetup in sbin with its manual page in
# section 8, kavdata in bin with its page in section 1, the boot-time service
# unit, the Mender Update Module and inventory script, and the package's documents.
include(GNUInstallDirs)

# Where the Mender client looks for Update Modules and inventory scripts.
set(kavsetup_mender_dir ${CMAKE_INSTALL_DATAROOTDIR}/mender)
# The service unit's directory, relative to the prefix unless absolute.
set(KAVSETUP_SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE STRING
    "Directory of the service unit, relative to the install prefix")
set(kavsetup_install_dirs ${CMAKE_INSTALL_SBINDIR} ${CMAKE_INSTALL_BINDIR}
    ${CMAKE_INSTALL_MANDIR}/man8 ${CMAKE_INSTALL_MANDIR}/man1 ${CMAKE_INSTALL_DOCDIR} ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
    ${kavsetup_mender_dir}/modules/v3 ${kavsetup_mender_dir}/inventory
    ${CMAKE_INSTALL_DATAROOTDIR}/kavsetup ${KAVSETUP_SYSTEMD_UNIT_DIR})

# Installing runs this first: it resolves the destinations against the prefix
# given at install time and notes which directories do not exist yet.
install(CODE "
  set(kavsetup_install_dirs \"${kavsetup_install_dirs}\")
  set(kavsetup_strip \"${CMAKE_STRIP}\")
")
install(CODE [[
  set(kavsetup_new_dirs)
  foreach(dir IN LISTS kavsetup_install_dirs)
    if(NOT IS_ABSOLUTE "${dir}")
      set(dir "${CMAKE_INSTALL_PREFIX}/${dir}")
    endif()
    list(APPEND kavsetup_full_dirs "${dir}")
    get_filename_component(dir "$ENV{DESTDIR}${dir}" ABSOLUTE)
    while(NOT IS_DIRECTORY "${dir}")
      list(APPEND kavsetup_new_dirs "${dir}")
      get_filename_component(dir "${dir}" DIRECTORY)
    endwhile()
  endforeach()
  list(GET kavsetup_full_dirs 0 kavsetup_sbindir)
  list(GET kavsetup_full_dirs 1 kavsetup_bindir)
  list(GET kavsetup_full_dirs -1 kavsetup_unit_dir)
]])

install(TARGETS kavsetup RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS kavdata RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The manual page and the changelog are installed compressed, as Debian's
# policy wants; -n keeps names and times out, so that builds are reproducible.
find_program(KAVSETUP_GZIP gzip REQUIRED)
foreach(document man/kavsetup.8 man/kavdata.1 packaging/changelog)
  get_filename_component(name ${document} NAME)
  add_custom_command(OUTPUT ${name}.gz
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/${document} ${name}
    COMMAND ${KAVSETUP_GZIP} -9nf ${name}
    DEPENDS ${document} VERBATIM)
endforeach()
add_custom_target(kavsetup_documents ALL DEPENDS kavsetup.8.gz kavdata.1.gz changelog.gz)
install(FILES ${PROJECT_BINARY_DIR}/kavsetup.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${PROJECT_BINARY_DIR}/kavdata.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
# The licence asks that its notice go with every copy, so an image gets it too.
install(FILES ${PROJECT_BINARY_DIR}/changelog.gz packaging/copyright
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
        RENAME kavsetup)
install(FILES packaging/kavsetup.service packaging/kavdata-clean.service
        DESTINATION ${KAVSETUP_SYSTEMD_UNIT_DIR})
# For devices updated through Mender: inert without its client, hence no
# dependency on it, as with the units and systemd.
install(PROGRAMS packaging/mender/tz-data DESTINATION ${kavsetup_mender_dir}/modules/v3)
install(PROGRAMS packaging/mender/mender-inventory-tz-data DESTINATION ${kavsetup_mender_dir}/inventory)
# The build host's side: a data set into a signed artifact, with kavdata pack
# and mender-artifact, which it needs only where it runs.
install(PROGRAMS tools/make-tz-artifact DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/kavsetup)

# Installing ends with this, which must stay the last install rule.
install(CODE [[
  # The units name /usr/sbin/kavsetup and /usr/bin/kavdata, the programs'
  # places on a device image; `cmake --install --prefix` may put them
  # elsewhere, so the installed copies are rewritten in place.
  set(units kavsetup.service kavdata-clean.service)
  set(programs /usr/sbin/kavsetup /usr/bin/kavdata)
  set(installed "${kavsetup_sbindir}/kavsetup" "${kavsetup_bindir}/kavdata")
  foreach(unit_name program installed_program IN ZIP_LISTS units programs installed)
    set(unit_file "$ENV{DESTDIR}${kavsetup_unit_dir}/${unit_name}")
    file(READ "${unit_file}" unit)
    string(FIND "${unit}" "\nExecStart=${program}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${unit_file} has no line ExecStart=${program}")
    endif()
    string(REPLACE "\nExecStart=${program}" "\nExecStart=${installed_program}" unit "${unit}")
    file(WRITE "${unit_file}" "${unit}")
  endforeach()

  # A stripped program has no use for the compilers' notes either; Debian's
  # own tools remove them too.
  if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND "${kavsetup_strip}" --remove-section=.comment --remove-section=.note
                            "$ENV{DESTDIR}${kavsetup_sbindir}/kavsetup"
                            "$ENV{DESTDIR}${kavsetup_bindir}/kavdata" COMMAND_ERROR_IS_FATAL ANY)
  endif()

  # mkdir(2) applies the umask whatever mode it is asked for: under umask 077
  # an image or a package would get directories that only root may enter.
  if(kavsetup_new_dirs)
    file(CHMOD ${kavsetup_new_dirs} DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE
         OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endif()

  # What follows in the install script is CMake's list of the installed files,
  # written into the build tree. Skipped, installing writes nothing but the
  # destination, and so works from a read-only or another user's build tree.
  return()
]])

set(CPACK_PACKAGE_NAME kavsetup)
set(CPACK_PACKAGE_VENDOR "kavsetup developers")
set(KAVSETUP_MAINTAINER "kavsetup developers <kavsetup@example.org>" CACHE STRING
    "Maintainer field of the Debian package: a name and an e-mail address")
set(CPACK_PACKAGE_CONTACT "${KAVSETUP_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "boot-time choice of the time zone data set and repair of its links")
set(CPACK_PACKAGE_DESCRIPTION
    "kavsetup runs once at every boot and points the time zone links under
/var/db/timezone at the newest compatible time zone data set, falling back
to the system partition's data, and repairs the local time link. kavdata
says what the next boot will do and why, and checks a data set before it is
staged. A Mender Update Module and inventory script deliver data sets
through that update engine.")
set(CPACK_GENERATOR DEB)
# DEB installs under /usr by default; set here, the prefix would also move the
# source package's tree under usr/.
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_ENHANCES mender-client)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/packaging/postinst;${PROJECT_SOURCE_DIR}/packaging/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# `cpack --config CPackSourceConfig.cmake` packs the checked-out tree alone:
# no build trees, no Git data, no caches. The patterns are written into that
# file as strings, hence each regular-expression escape is doubled.
string(REGEX REPLACE "([][+.*()^$?|\\\\])" "\\\\\\\\\\1" kavsetup_source "${PROJECT_SOURCE_DIR}")
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES "^${kavsetup_source}/\\\\.git(/|$)"
    "^${kavsetup_source}/build[^/]*(/|$)" "/__pycache__/" "\\\\.swp$" "~$")
include(CPack)
