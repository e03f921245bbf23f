#!/bin/bash
# Makes the Debian packages of a build and looks into them. If lintian is installed, as by a campaign,
# Debian's own checks must report no error and no warning.
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
    case $1 in
        migration-report) echo "$scratch/$1_${version}_all.deb" ;;
        *) echo "$scratch/$1_${version}_$architecture.deb" ;;
    esac
}

files() {
    dpkg-deb --contents "$(package "$1")" | sed -n '/^-/s/ \+/ /gp' | cut -d ' ' -f 1,2,6 | sort -k 3
}

# Prints the packages that a package needs, without their versions.
depends() {
    dpkg-deb --field "$(package "$1")" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//' | sort --unique
}

cpack --config "$1/CPackConfig.cmake" -B "$scratch" >"$scratch/output" 2>&1 || {
    cat "$scratch/output" >&2
    exit 1
}
expect "one package for each program, of the changelog's version" \
    "$(cd "$scratch" && echo ./*.deb)" \
    "./database-migrator_${version}_$architecture.deb ./migration-guard_${version}_$architecture.deb \
./migration-report_${version}_all.deb"

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
installed=$(files migration-guard | sed -n 's|.* \.\(/.*/migration-guard\)$|\1|p')
for page in rehearsal report; do
    expect "docs/$page.md: where the package installs the guard" \
        "$(grep --only-matching '/[a-z/]*/migration-guard' "$root/docs/$page.md" | sort --unique)" \
        "$installed"
done
expect "the files of the report" "$(files migration-report)" \
    "-rw-r--r-- root/root ./usr/share/doc/migration-report/changelog.gz
-rw-r--r-- root/root ./usr/share/doc/migration-report/copyright
-rw-r--r-- root/root ./usr/share/man/man1/migration-report.1.gz
-rwxr-xr-x root/root ./usr/share/migration-report/migration_report.py
-rw-r--r-- root/root ./usr/share/migration-report/page.html
-rw-r--r-- root/root ./usr/share/migration-report/page.py
-rw-r--r-- root/root ./usr/share/migration-report/reading.py
-rw-r--r-- root/root ./usr/share/migration-report/sentences.py
-rw-r--r-- root/root ./usr/share/migration-report/style.css
-rw-r--r-- root/root ./usr/share/migration-report/texts.py
-rw-r--r-- root/root ./usr/share/migration-report/verdict.py
-rw-r--r-- root/root ./usr/share/migration-report/words.json"

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
expect "the SQLite library that the guard needs" \
    "$(dpkg-deb --field "$(package migration-guard)" Depends | tr ',' '\n' |
        grep --only-matching 'libsqlite3-0 (>= 3\.33)')" "libsqlite3-0 (>= 3.33)"
expect "what the report needs" "$(depends migration-report)" \
    "python3
python3-jinja2"

for page in database-migrator.8 migration-guard.8 migration-report.1; do
    name=${page%.*}
    expect "$name: no script that could touch a database" \
        "$(dpkg-deb --ctrl-tarfile "$(package "$name")" | tar --list | sort)" "./control
./md5sums"
    expect "$name: its man page, whole" \
        "$(dpkg-deb --fsys-tarfile "$(package "$name")" |
            tar --extract --to-stdout "./usr/share/man/man${page##*.}/$page.gz" | gzip --decompress)" \
        "$(cat "$root/packaging/man/$page")"
done
expect "the example is the newest version" \
    "$(dpkg-deb --fsys-tarfile "$(package migration-guard)" |
        tar --extract --to-stdout ./usr/share/doc/migration-guard/examples/schemaversion.txt)" \
    "$(sed -n 's/^ *{\([0-9]\+\),.*/\1/p' "$root/app/registry.cpp" | tail -n 1)"

dpkg-deb --extract "$(package migration-report)" "$scratch/service"
echo '{"format": 1, "rehearsal": true, "status": 0, "from": 16, "to": 34}' >"$scratch/rehearsal.json"
expect "the report of the package makes a page" \
    "$("$scratch/service/usr/bin/migration-report" "$scratch/rehearsal.json" | grep '<h1')" \
    "$("$root/report/migration_report.py" "$scratch/rehearsal.json" | grep '<h1')"
expect "and leaves nothing where it is installed" \
    "$(find "$scratch/service" -name __pycache__)" ""

if [ -n "${CAMPAIGN:-}" ] || command -v lintian >/dev/null; then
    expect "lintian" "$(lintian --allow-root "$scratch"/*.deb 2>&1)" ""
fi
