#!/bin/bash
# Makes the Debian packages of a build and looks into them. With lintian, which a campaign installs,
# Debian's own checks as well: no error and no warning.
#
#   packages_test.sh BUILD_DIRECTORY
set -euo pipefail

root=$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../..
scratch=$(mktemp -d "${TMPDIR:-/tmp}/packages.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
architecture=$(dpkg --print-architecture)
version=$(sed -n '1s/.*(\(.*\)).*/\1/p' "$root/packaging/debian/changelog")

expect() {
    local case=$1 actual=$2 expected=$3
    [ "$actual" = "$expected" ] && return
    printf '%s: got\n%s\ninstead of\n%s\n' "$case" "$actual" "$expected" >&2
    exit 1
}

package() {
    echo "$scratch/$1_${version}_$architecture.deb"
}

files() {
    dpkg-deb --contents "$(package "$1")" | sed -n '/^-/s/ \+/ /gp' | cut -d ' ' -f 1,2,6 | sort -k 3
}

# The packages that a package needs, without their versions.
depends() {
    dpkg-deb --field "$(package "$1")" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//' | sort
}

cpack --config "$1/CPackConfig.cmake" -B "$scratch" >"$scratch/output" 2>&1 || {
    cat "$scratch/output" >&2
    exit 1
}
expect "one package for each program, of the changelog's version" \
    "$(cd "$scratch" && echo ./*.deb)" \
    "./database-migrator_${version}_$architecture.deb ./migration-guard_${version}_$architecture.deb"

expect "the files of the program" "$(files database-migrator)" \
    "-rwxr-xr-x root/root ./usr/lib/fieldcomputer/database-migrator
-rw-r--r-- root/root ./usr/lib/fieldcomputer/schema-versions.json
-rw-r--r-- root/root ./usr/share/doc/database-migrator/changelog.gz
-rw-r--r-- root/root ./usr/share/doc/database-migrator/copyright
-rw-r--r-- root/root ./usr/share/man/man8/database-migrator.8.gz"
expect "the files of the guard" "$(files migration-guard)" \
    "-rwxr-xr-x root/root ./usr/lib/fieldcomputer/migration-guard
-rw-r--r-- root/root ./usr/share/doc/migration-guard/changelog.gz
-rw-r--r-- root/root ./usr/share/doc/migration-guard/copyright
-rw-r--r-- root/root ./usr/share/doc/migration-guard/examples/migration-guard-trial.service
-rw-r--r-- root/root ./usr/share/doc/migration-guard/examples/migration-guard.service
-rw-r--r-- root/root ./usr/share/doc/migration-guard/examples/sandbox.conf
-rw-r--r-- root/root ./usr/share/doc/migration-guard/examples/schemaversion.txt
-rw-r--r-- root/root ./usr/share/man/man8/migration-guard.8.gz"

expect "what the program needs" "$(depends database-migrator)" \
    "libc6
libgcc-s1
libqt5core5a
libqt5sql5
libqt5sql5-sqlite
libqt5xml5
libstdc++6"
expect "what the guard needs" "$(depends migration-guard)" \
    "bubblewrap
database-migrator
libc6
libgcc-s1
libqt5core5a
libsqlite3-0
libstdc++6"

for name in database-migrator migration-guard; do
    expect "$name: no script that could touch a database" \
        "$(dpkg-deb --ctrl-tarfile "$(package $name)" | tar --list | sort)" "./control
./md5sums"
    expect "$name: its man page, whole" \
        "$(dpkg-deb --fsys-tarfile "$(package $name)" |
            tar --extract --to-stdout "./usr/share/man/man8/$name.8.gz" | gzip --decompress)" \
        "$(cat "$root/packaging/man/$name.8")"
done
expect "the example is the newest version" \
    "$(dpkg-deb --fsys-tarfile "$(package migration-guard)" |
        tar --extract --to-stdout ./usr/share/doc/migration-guard/examples/schemaversion.txt)" \
    "$(sed -n 's/^ *{\([0-9]\+\),.*/\1/p' "$root/app/registry.cpp" | tail -n 1)"

if [ -n "${CAMPAIGN:-}" ] || command -v lintian >/dev/null; then
    expect "lintian" "$(lintian --allow-root "$scratch"/*.deb 2>&1)" ""
fi
