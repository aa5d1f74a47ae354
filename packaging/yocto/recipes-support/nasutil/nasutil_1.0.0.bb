# SPDX-License-Identifier: MIT
SUMMARY = "Shared library of an appliance's services"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=477f256968f9a4cec8656d320ee3b4aa"

# The deployment's own, in local.conf: where the release lies, its checksum, and the secret.
SRC_URI = "${NASUTIL_SITE}/nasutil-${PV}.tar.gz"
SRC_URI[sha256sum] = "${NASUTIL_SHA256SUM}"
python () {
    for name in "NASUTIL_SITE", "NASUTIL_SHA256SUM", "NASUTIL_MD5_KEY":
        if not d.getVar(name):
            raise bb.parse.SkipRecipe(name + " is not set")
}

DEPENDS = "openssl tinyxml"
inherit cmake systemd update-rc.d useradd
EXTRA_OECMAKE = " \
    -DBUILD_TESTING=OFF \
    -DCMAKE_SKIP_INSTALL_RPATH=ON \
    -DNASUTIL_MD5_KEY='${NASUTIL_MD5_KEY}' \
    -DNASUTIL_SYSTEMD_UNIT_DIR=${systemd_system_unitdir} \
"
do_install:append() {
    DESTDIR='${D}' cmake --install ${B} --component appliance
}

PACKAGES =+ "${PN}-appliance ${PN}-tools"
FILES:${PN}-tools = " \
    ${bindir}/nas-conf ${bindir}/nas-log ${bindir}/nas-plist \
    ${datadir}/bash-completion ${datadir}/zsh \
"
FILES:${PN}-dev += "${bindir}/nas-new-daemon ${datadir}/nasutil"

FILES:${PN}-appliance = " \
    ${sysconfdir} ${bindir}/nasctl ${sbindir}/nasd ${libexecdir}/nasd ${datadir}/nasd \
    ${systemd_system_unitdir} ${nonarch_libdir}/sysusers.d ${nonarch_libdir}/tmpfiles.d \
"
CONFFILES:${PN}-appliance = "${sysconfdir}/nasd/nas_conf_db.xml"
RRECOMMENDS:${PN}-appliance = " \
    lighttpd lighttpd-module-alias lighttpd-module-cgi lighttpd-module-setenv \
"
SYSTEMD_PACKAGES = "${PN}-appliance"
SYSTEMD_SERVICE:${PN}-appliance = "nasd.service"
INITSCRIPT_PACKAGES = "${PN}-appliance"
INITSCRIPT_NAME:${PN}-appliance = "nasd"
# The web server's user may read the state.
USERADD_PACKAGES = "${PN}-appliance"
USERADD_PARAM:${PN}-appliance = "--system --user-group --no-create-home --shell /bin/false nasd"
GROUPMEMS_PARAM:${PN}-appliance = "--add www-data --group nasd"
