# Install-time part of the installation: the switch_daemon link and the start
# scripts, whose contents name the installed paths. Runs inside cmake_install,
# after the SWITCH_* settings of the configured tree have been set; honours the
# install prefix given at install time and DESTDIR.

# An install directory as the installed files see it (without DESTDIR). As with
# GNUInstallDirs, the configuration directory of the prefix /usr is /etc.
function(switch_full_dir out dir)
  if(IS_ABSOLUTE "${dir}")
    set(full "${dir}")
  elseif(dir STREQUAL "etc" AND CMAKE_INSTALL_PREFIX MATCHES "^/(usr/?)?$")
    set(full "/etc")
  else()
    string(REGEX REPLACE "/+$" "" prefix "${CMAKE_INSTALL_PREFIX}")
    set(full "${prefix}/${dir}")
  endif()
  set(${out} "${full}" PARENT_SCOPE)
endfunction()

switch_full_dir(SBINDIR "${SWITCH_SBINDIR}")
switch_full_dir(SYSCONFDIR "${SWITCH_SYSCONFDIR}")
switch_full_dir(UNITDIR "${SWITCH_SYSTEMD_UNIT_DIR}")
switch_full_dir(TMPFILESDIR "${SWITCH_TMPFILES_DIR}")

# The daemon role is the same file under another name.
set(link "$ENV{DESTDIR}${SBINDIR}/switch_daemon")
message(STATUS "Installing: ${link} -> switch_config")
file(CREATE_LINK switch_config "${link}" SYMBOLIC)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${SBINDIR}/switch_daemon")

# Substituted into the templates below.
set(DEFAULTS_FILE "${SYSCONFDIR}/default/switch_daemon")
set(TMPFILES_CONF "${TMPFILESDIR}/switch_daemon.conf")
# One directory per destination, so that installs to several places from one
# build tree do not share the generated files.
string(MD5 destination_key "$ENV{DESTDIR}|${CMAKE_INSTALL_PREFIX}")
set(generated "${SWITCH_BINARY_DIR}/packaging/${destination_key}")

file(INSTALL "${SWITCH_SOURCE_DIR}/packaging/default/switch_daemon"
     DESTINATION "${SYSCONFDIR}/default"
     PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

if(SWITCH_INSTALL_SYSV_INIT)
  configure_file("${SWITCH_SOURCE_DIR}/packaging/init.d/switch_daemon.in"
                 "${generated}/${SWITCH_INIT_SCRIPT_NAME}" @ONLY)
  file(INSTALL "${generated}/${SWITCH_INIT_SCRIPT_NAME}"
       DESTINATION "${SYSCONFDIR}/init.d"
       PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                   WORLD_READ WORLD_EXECUTE)
endif()

if(SWITCH_INSTALL_SYSTEMD_UNIT)
  configure_file("${SWITCH_SOURCE_DIR}/packaging/systemd/switch_daemon.service.in"
                 "${generated}/switch_daemon.service" @ONLY)
  file(INSTALL "${generated}/switch_daemon.service"
       DESTINATION "${UNITDIR}"
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(INSTALL "${SWITCH_SOURCE_DIR}/packaging/tmpfiles.d/switch_daemon.conf"
       DESTINATION "${TMPFILESDIR}"
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()
