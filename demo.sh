#!/bin/bash
# Builds the programs, rehearses a migration on a scratch device, runs the guard there and shows what
# changed. It also makes the page about the rehearsal that a technician gets.
#
#   ./demo.sh [--fresh] [--worn] [--direct] [TARGET]
#
# TARGET is the schema version to go to, by default the newest one. The device is the directory
# build/demo-device. The first call makes it, with a database at version 1 in which a run has two things
# to repair (tests/data/demo/repairs.sql). Later calls use it again; --fresh makes it again. --worn
# makes it again with a database that is in bad order (tests/data/blemishes.sql says what is wrong with
# it; its version rows say 2). --direct runs the program alone. ./demo.sh 1 goes back; the comparison
# shows what that loses.
set -euo pipefail

usage() {
    sed -n '2,/^set/{s/^# \?//p}' "${BASH_SOURCE[0]}"
}

meaning() {
    case $1 in
        0) echo "the target is reached, nothing to look at" ;;
        2) echo "the call was wrong, nothing was started" ;;
        3) echo "nothing has changed, the database is as it was" ;;
        4) echo "the database has changed, but look at it" ;;
        *) echo "the guard was ended; the database is as it was unless the run was direct" ;;
    esac
}

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")"
device=build/demo-device
database=$device/app/databases/my.db.sqlite
before=$device/before.sqlite
log=$device/app/databases/sqlMigrationErrorLog.txt
build_log=build/demo-build.log

fresh=
direct=
worn=
while [[ "${1:-}" == -* ]]; do
    case $1 in
        --fresh) fresh=yes ;;
        --worn) fresh=yes worn=yes ;;
        --direct) direct=yes ;;
        -h | --help) usage && exit ;;
        *) usage >&2 && exit 2 ;;
    esac
    shift
done
blemishes=tests/data/demo/repairs.sql
[ -z "$worn" ] || blemishes=tests/data/blemishes.sql
[ $# -le 1 ] || { usage >&2 && exit 2; }
target=${1-$(sed -n 's/^ *{\([0-9]\+\),.*/\1/p' app/registry.cpp | tail -n 1)}

. tools/packages.sh
install_packages demo

echo "Building the programs"
mkdir -p build
{ cmake --preset release && cmake --build --preset release; } >"$build_log" 2>&1 || {
    cat "$build_log" >&2
    exit 1
}

if [ -n "$fresh" ]; then
    rm -rf "$device"
fi
if [ ! -e "$database" ]; then
    echo "Making a scratch device with a database at version 1${worn:+ whose rows say 2}: $device"
    mkdir -p "$device"/{app/databases,app/quillmoor,etc/harlo,Harlo,pool}
    echo 4.2.0 >"$device/app/quillmoor/softwareversion.txt"
    echo TORVIK >"$device/etc/harlo/platform"
    cp tests/data/demo/registration.xml "$device/Harlo"
    cp tests/data/demo/ref*.sql "$device/app"
    if [ -z "$worn" ]; then
        # Statements that fail in every run, for tests.
        sed -i '/MC_MachineType/d; /Lime; fine/d; /Glyphosate 360/d' "$device"/app/ref*.sql
    fi
    touch "$device/pool/VT-01.iop"
    # The rename is last: a half-written database would be taken for a device.
    rm -f "$before"
    cat tests/data/version_01.sql "$blemishes" | sqlite3 -bail "$before"
    mv "$before" "$database"
fi

sqlite3 "$database" ".backup '$before'"
touch "$log"
log_size=$(stat --format %s "$log")
cp build/release/{database-migrator,guard/migration-guard,schema-versions.json} "$device/app"
on_device() {
    DEVICE_OPTIONS="--ro-bind /usr/bin/bwrap /usr/bin/bwrap" \
        tests/support/on_device.sh "$device" "$device/app/$1" "${@:2}"
}

echo "Rehearsing: migration-guard rehearse $target --json"
status=0
on_device migration-guard rehearse "$target" --json >"$device/rehearsal.json" || status=$?
if [ $status != 2 ]; then
    report/migration_report.py "$device/rehearsal.json" >"$device/rehearsal.html"
fi

if [ -n "$direct" ]; then
    echo "Running database-migrator $target"
    on_device database-migrator "$target"
else
    echo "Running migration-guard run $target"
    status=0
    on_device migration-guard run "$target" || status=$?
    echo "Exit status $status: $(meaning $status)"
fi

printf '\nLog of this run\n'
tail --bytes +$((log_size + 1)) "$log" | sed 's/^./  &/'
tools/show_changes.py "$before" "$database"
if [ $status != 2 ]; then
    printf '\nThe page of the rehearsal, for a technician: %s\n' "$PWD/$device/rehearsal.html"
fi
