#!/bin/bash
# Installs a build as the builder of an image does, and tries what is in the image then.
#
#   install_test.sh BUILD_DIRECTORY
set -euo pipefail

root=$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../..
scratch=$(mktemp -d "${TMPDIR:-/tmp}/image.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

expect() {
    local case=$1 actual=$2 expected=$3
    [ "$actual" = "$expected" ] && return
    printf '%s: got\n%s\ninstead of\n%s\n' "$case" "$actual" "$expected" >&2
    exit 1
}

DESTDIR=$scratch/image cmake --install "$1" --prefix /usr >"$scratch/output"
expect "the program is all that is installed" \
    "$(cd "$scratch/image" && find . -type f)" ./usr/bin/database-migrator

device=$scratch/device
mkdir -p "$device/app/databases"
"$root/tests/support/on_device.sh" "$device" "$scratch/image/usr/bin/database-migrator" 1
expect "the installed program runs" \
    "$(grep Beginning "$device/app/databases/sqlMigrationErrorLog.txt")" \
    "*****Beginning database migration from version: 0 to version: 1"

# The start-up step, with a program that shows how it was called.
app=$scratch/app
mkdir "$app"
cp "$root/packaging/migrate-database.sh" "$app"
printf '#!/bin/sh\nprintf "started with:"\nprintf " <%%s>" "$@"\n' >"$app/database-migrator"
chmod +x "$app/database-migrator"

start_up() {
    "$app/migrate-database.sh" 2>/dev/null || echo "not started"
}

expect "no version file" "$(start_up)" "not started"
while IFS='|' read -r content outcome; do
    printf %b "$content" >"$app/schemaversion.txt"
    expect "version file holds '$content'" "$(start_up)" "$outcome"
done <<'END'
34|started with: <34>
34\n|started with: <34>
2\n|started with: <2>
|not started
\n|not started
0\n|not started
-5\n|not started
abc\n|not started
12abc\n|not started
12 13\n|not started
34\n35\n|not started
END
