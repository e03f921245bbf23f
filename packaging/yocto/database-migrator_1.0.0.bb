# An example of a recipe, for Yocto 4.0 and 5.0 with the layers openembedded-core, meta-openembedded
# (meta-oe) and meta-qt5. No build of Yocto has run it; see docs/fleet.md.
#
# The distribution's configuration has to ask for Qt's SQLite driver, which meta-qt5 leaves out:
#   PACKAGECONFIG:append:pn-qtbase = " sql-sqlite"
# meta-oe has bubblewrap.
SUMMARY = "Schema migration of a field computer's database, safe against power cuts"
LICENSE = "CLOSED"

SRC_URI = "git://git.example.invalid/database-migrator.git;protocol=https;branch=main"
SRCREV = "0000000000000000000000000000000000000000"
S = "${WORKDIR}/git"

# qtbase and what is needed to find it come with the class.
inherit cmake_qt5 systemd
DEPENDS += "sqlite3"

# The application directory of the image. A unit names it too.
APPLICATION = "${nonarch_libdir}/fieldcomputer"
EXTRA_OECMAKE += "-DCMAKE_INSTALL_BINDIR=${APPLICATION}"

do_install:append() {
    # What the image adds: its version, and where its data partition is.
    echo "${SCHEMA_VERSION}" > ${D}${APPLICATION}/schemaversion.txt
    ln -s /data/databases ${D}${APPLICATION}/databases

    install -m 0755 ${S}/packaging/update-engines/update-check ${D}${APPLICATION}
    install -d ${D}${systemd_system_unitdir}
    for unit in migration-guard migration-guard-trial; do
        install -m 0644 ${S}/packaging/systemd/$unit.service ${D}${systemd_system_unitdir}
        install -d ${D}${systemd_system_unitdir}/$unit.service.d
        install -m 0644 ${S}/packaging/systemd/sandbox.conf \
            ${D}${systemd_system_unitdir}/$unit.service.d
    done
    install -m 0644 ${S}/packaging/update-engines/systemd/fall-back.conf \
        ${D}${systemd_system_unitdir}/migration-guard.service.d
    install -m 0644 ${S}/packaging/update-engines/systemd/first-start.conf \
        ${D}${systemd_system_unitdir}/migration-guard-trial.service.d
}

python () {
    if not d.getVar("SCHEMA_VERSION"):
        raise bb.parse.SkipRecipe("SCHEMA_VERSION is not set: the image's device software knows it")
}

SYSTEMD_SERVICE:${PN} = "migration-guard.service migration-guard-trial.service"
FILES:${PN} += "${APPLICATION} ${systemd_system_unitdir}"

# The libraries are found by themselves, but not the version of SQLite that the guard needs. Nor are
# these found: the driver that Qt loads at run time, and the program that makes the guard's sandbox.
RDEPENDS:${PN} += "libsqlite3 (>= 3.33) qtbase-plugins bubblewrap"
