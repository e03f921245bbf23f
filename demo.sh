#!/bin/bash
# Builds the program, runs it on a scratch device and shows what it did there.
#
#   ./demo.sh [--fresh] [TARGET]
#
# TARGET is the schema version to go to, by default the newest one. The device is the directory
# build/demo-device: made at the first call with a database at version 1 that has known better days
# (tests/data/blemishes.sql says what is wrong with it), kept from call to call, made again with
# --fresh. ./demo.sh 1 goes back; what that loses is in the comparison.
set -euo pipefail

usage() {
    sed -n '2,/^set/{s/^# \?//p}' "${BASH_SOURCE[0]}"
}

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")"
device=build/demo-device
database=$device/app/databases/my.db.sqlite
before=$device/before.sqlite
log=$device/app/databases/sqlMigrationErrorLog.txt
build_log=build/demo-build.log

fresh=
if [ "${1:-}" = --fresh ]; then
    fresh=yes
    shift
fi
case "${1:-}" in
    -h | --help) usage && exit ;;
    --*) usage >&2 && exit 2 ;;
esac
[ $# -le 1 ] || { usage >&2 && exit 2; }
target=${1-$(sed -n 's/^ *{\([0-9]\+\),.*/\1/p' app/registry.cpp | tail -n 1)}

. tools/packages.sh
install_packages demo

echo "Building the program"
mkdir -p build
{ cmake --preset release && cmake --build --preset release; } >"$build_log" 2>&1 || {
    cat "$build_log" >&2
    exit 1
}

if [ -n "$fresh" ]; then
    rm -rf "$device"
fi
if [ ! -e "$database" ]; then
    echo "Making a scratch device with a database at version 1: $device"
    mkdir -p "$device"/{app/databases,app/quillmoor,etc/harlo,Harlo,pool}
    echo 4.2.0 >"$device/app/quillmoor/softwareversion.txt"
    echo TORVIK >"$device/etc/harlo/platform"
    cp tests/data/demo/registration.xml "$device/Harlo"
    cp tests/data/demo/ref*.sql "$device/app"
    touch "$device/pool/VT-01.iop"
    # In one go: a file that is only half there would pass for a device.
    rm -f "$before"
    cat tests/data/version_01.sql tests/data/blemishes.sql | sqlite3 -bail "$before"
    mv "$before" "$database"
fi

echo "Running database-migrator $target"
sqlite3 "$database" ".backup '$before'"
touch "$log"
log_size=$(stat --format %s "$log")
tests/support/on_device.sh "$device" build/release/database-migrator "$target"

printf '\nLog of this run\n'
tail --bytes +$((log_size + 1)) "$log" | sed 's/^./  &/'
tools/show_changes.py "$before" "$database"
