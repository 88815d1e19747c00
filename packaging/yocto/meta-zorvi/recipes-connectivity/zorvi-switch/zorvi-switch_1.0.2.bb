SUMMARY = "Switch chip tool and link monitor of the Zorvi HPB boards"
DESCRIPTION = "switch_config shows the status of the Ethernet switch chip on the \
SPI bus, reads and writes its registers, sets the management mode and opens the \
switch console; switch_daemon, the same executable under another name, watches \
the links, announces changes by IPv6 multicast and refreshes avahi-autoipd and \
avahi-daemon."
LICENSE = "CLOSED"

# Builds the source tree this layer lives in (packaging/yocto/meta-zorvi). For
# a release build from the repository instead, replace these two lines by
#   SRC_URI = "git://<server>/zorvi-switch.git;protocol=ssh;branch=main"
#   SRCREV = "<commit>"  and  S = "${WORKDIR}/git"
inherit externalsrc
EXTERNALSRC ?= "${@os.path.abspath(os.path.join(d.getVar('THISDIR'), '../../../../..'))}"

inherit cmake update-rc.d systemd

# Not the tests and their bench; the init script under the name that
# update-rc.d links into the runlevels; the unit and its tmpfiles.d file where
# systemd looks.
EXTRA_OECMAKE = " \
    -DSWITCH_TESTS=OFF \
    -DSWITCH_INIT_SCRIPT_NAME=switch_daemon \
    -DSWITCH_SYSTEMD_UNIT_DIR=${systemd_system_unitdir} \
    -DSWITCH_TMPFILES_DIR=${nonarch_libdir}/tmpfiles.d \
"
# A small executable: unused functions and data are dropped at link time
# (the packaging strips it).
CXXFLAGS:append = " -ffunction-sections -fdata-sections"
LDFLAGS:append = " -Wl,--gc-sections"

INITSCRIPT_NAME = "switch_daemon"
INITSCRIPT_PARAMS = "defaults 60 40"

SYSTEMD_SERVICE:${PN} = "switch_daemon.service"

CONFFILES:${PN} = "${sysconfdir}/default/switch_daemon"
# The firewall rules (${datadir}/zorvi-switch) are packaged by default.
FILES:${PN} += "${nonarch_libdir}/tmpfiles.d"

# The daemon refreshes these through their pid files; the kernel needs
# CONFIG_SPI_SPIDEV, CONFIG_GPIO_SYSFS and CONFIG_IPV6.
RRECOMMENDS:${PN} = "avahi-daemon avahi-autoipd"
