#!/bin/bash
# Runs a program on a scratch device: a directory whose app/, Harlo/, etc/harlo/ and pool/ are mounted
# at the field computer's fixed paths. The program can write there and nowhere else.
#
#   on_device.sh DEVICE PROGRAM [ARGUMENT...]
# DEVICE is the directory, which is made if it is missing; "--scratch" means a new one that is removed
# afterwards. A program in the device's app/ runs where it is; any other runs as if it were directly in
# app/. DEVICE_LOCALE is the program's locale (default C), DEVICE_OPTIONS has further options for
# bubblewrap, COVERAGE_DIRECTORY is a place that stays writable for counters. The sanitizers' options
# reach the program, and so does CAMPAIGN, which makes tests try all their cases. For a program of
# another processor, DEVICE_EMULATOR is a static program that runs it, and DEVICE_SYSTEM the root
# directory of a system with its libraries; the sandbox itself stays this machine's.
set -eu

device=$1 program=$(realpath "$2")
shift 2
scratch=
if [ "$device" = --scratch ]; then
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/device.XXXXXX")
    trap 'rm -rf "$scratch"' EXIT
    device=$scratch
    mkdir -p "$device/app/databases" "$device/Harlo" "$device/pool"
fi
mkdir -p "$device/app" "$device/Harlo" "$device/etc/harlo" "$device/pool"
device=$(realpath "$device")

if [ -n "${DEVICE_SYSTEM:-}" ]; then
    libraries=(--ro-bind "$DEVICE_SYSTEM/usr/lib" /usr/lib --symlink usr/lib /lib)
else
    libraries=(
        --ro-bind /usr/lib /usr/lib --symlink usr/lib /lib
        --ro-bind-try /usr/lib64 /usr/lib64 --symlink usr/lib64 /lib64
        --ro-bind-try /etc/ld.so.cache /etc/ld.so.cache
    )
fi
sandbox=(
    bwrap --die-with-parent --clearenv --setenv LC_ALL "${DEVICE_LOCALE:-C}" --setenv TZ UTC
    --setenv SCRATCH_DEVICE yes
    "${libraries[@]}"
    --bind "$device/Harlo" /Harlo --bind "$device/etc/harlo" /etc/harlo
    --bind "$device/pool" /usr/bin/harlo/pool --bind "$device/app" /app
    --proc /proc --dev /dev --tmpfs /tmp --chdir /
)
case $program in
"$device"/app/*) program=${program#"$device"} ;;
*)
    place=/app/$(basename "$program")
    sandbox+=(--ro-bind "$program" "$place")
    program=$place
    ;;
esac
for variable in ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS CAMPAIGN; do
    [ -z "${!variable:-}" ] || sandbox+=(--setenv "$variable" "${!variable}")
done
[ -z "${COVERAGE_DIRECTORY:-}" ] || sandbox+=(--bind "$COVERAGE_DIRECTORY" "$COVERAGE_DIRECTORY")
# shellcheck disable=SC2206 # the options are words
sandbox+=(${DEVICE_OPTIONS:-})
start=("$program")
if [ -n "${DEVICE_EMULATOR:-}" ]; then
    sandbox+=(--ro-bind "$DEVICE_EMULATOR" /emulator)
    start=(/emulator "$program")
fi

if [ -n "$scratch" ]; then
    "${sandbox[@]}" "${start[@]}" "$@"
else
    exec "${sandbox[@]}" "${start[@]}" "$@"
fi
