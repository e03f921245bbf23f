#!/bin/bash
# Installs a build as the builder of an image does, and tries the programs in that image.
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
expect "the programs and what the guard knows of the other one are all that is installed" \
    "$(cd "$scratch/image" && find . -type f | sort)" \
    "./usr/lib/fieldcomputer/database-migrator
./usr/lib/fieldcomputer/migration-guard
./usr/lib/fieldcomputer/schema-versions.json"

device=$scratch/device
mkdir -p "$device/app/databases"
"$root/tests/support/on_device.sh" "$device" "$scratch/image/usr/lib/fieldcomputer/database-migrator" 1
expect "the installed program runs" \
    "$(grep Beginning "$device/app/databases/sqlMigrationErrorLog.txt")" \
    "*****Beginning database migration from version: 0 to version: 1"

# An image's start-up calls the guard, which is beside the program, with the image's schema version.
rm -r "$device/app/databases"/*
# The sandbox has left an empty file where it mounted the program.
cp --remove-destination "$scratch/image/usr/lib/fieldcomputer/"* "$device/app"
newest=$(sed -n 's/^  "newest": \([0-9]*\),$/\1/p' "$device/app/schema-versions.json")
sqlite3 -bail "$device/app/databases/my.db.sqlite" <"$root/tests/data/version_01.sql"
export DEVICE_OPTIONS="--ro-bind /usr/bin/bwrap /usr/bin/bwrap"

start_up() {
    local status=0
    "$root/tests/support/on_device.sh" "$device" "$device/app/migration-guard" run \
        2>"$scratch/output" || status=$?
    echo "$status: $(tail -n 1 "$scratch/output")"
}

expect "no version file" "$(start_up)" \
    "2: migration-guard: no schema version in schemaversion.txt"
echo "$newest" >"$device/app/schemaversion.txt"
expect "the installed guard runs" "$(start_up)" \
    "0: migration-guard: from 1 to $newest, target $newest, guarded, changed, status 0"
