#!/bin/bash
# Tries the whole tree on a bare Debian, as a newcomer does, and the packages on a bare device. It
# installs two minimal systems into a scratch directory and clones the committed state of this tree into
# the first one. There it runs a plain build of the program, ./demo.sh and ./test.sh, as root, and makes
# the Debian packages. In the second system it installs, runs, upgrades, removes and purges them, and makes
# a page with the report. It needs root, debootstrap, git, the network, some 6 GB and a quarter of an hour.
# ./test.sh does not run it.
#
#   bare_tree.sh [--packages] [MIRROR]
# --packages tries only the packages. MIRROR is the source of Debian's packages, by default this
# machine's own.
set -euo pipefail

root=$(cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/.." && pwd)

# The mounts end with the process, so the removal below cannot delete files of the machine through one.
if [ -z "${BARE_TREE:-}" ]; then
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/bare_tree.XXXXXX")
    trap 'rm -rf --one-file-system "$scratch"' EXIT
    chmod 755 "$scratch" # for apt's own user
    BARE_TREE=$scratch unshare --mount --propagation private \
        "$(realpath "${BASH_SOURCE[0]}")" "$@"
    exit
fi

everything=yes
if [ "${1:-}" = --packages ]; then
    everything=
    shift
fi
# shellcheck disable=SC2016 # apt-get expands it
mirror=${1:-$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Codename: bookworm' |
    head -n 1)}

computer=$BARE_TREE/computer
device=$BARE_TREE/device
debootstrap --variant=minbase bookworm "$computer" "$mirror"
cp /etc/resolv.conf "$computer/etc/"
cp -a "$computer" "$device"
git clone --quiet --no-hardlinks "$root" "$computer/root/clone"

for tree in "$computer" "$device"; do
    # A root directory has to be a mount.
    mount --bind "$tree" "$tree"
    mount --rbind /dev "$tree/dev"
    mount -t proc proc "$tree/proc"
done

without=()
# The tree gets a mount namespace and becomes its root: the kernel makes no user namespace in a chroot,
# and shows a chroot's files under their outer names.
in_tree() {
    printf '\n==== %s: %s\n' "$(basename "$1")" "$2"
    # shellcheck disable=SC2016 # the inner shell expands it
    env --ignore-environment PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
        DEBIAN_FRONTEND=noninteractive unshare --mount --propagation private "${without[@]}" \
        bash -euc 'cd "$0" && pivot_root . . && umount --lazy . && cd / && exec bash -euc "$1"' \
        "$1" "$2" </dev/null
}

# The path in the last line of an output, which is the page that demo.sh has made.
last_path() {
    tail -n 1 "$1" | sed -n 's/^The page .*: \(\/.*\)$/\1/p'
}

is_page() {
    grep --quiet '^<!DOCTYPE html>$' "$1" && grep --quiet '<h1 ' "$1" &&
        [ "$(tail -n 1 "$1")" = '</html>' ]
}

if [ -n "$everything" ]; then
    in_tree "$computer" "cd /root/clone && . tools/packages.sh && install_packages program"
    in_tree "$computer" "cp -r /root/clone /root/plain && cd /root/plain &&
        cmake -S . -B build && cmake --build build"
    in_tree "$computer" "mkdir -p /root/app/databases &&
        cp /root/plain/build/database-migrator /root/app &&
        /root/app/database-migrator 1 && cat /root/app/databases/sqlMigrationErrorLog.txt"
    in_tree "$computer" "cd / && root/clone/demo.sh" | tee "$computer/root/demo.txt"
    is_page "$computer$(last_path "$computer/root/demo.txt")"
    in_tree "$computer" "cd / && root/clone/test.sh"

    # Once more, without the network.
    without=(--net)
    in_tree "$computer" "/root/clone/demo.sh 1"
    in_tree "$computer" "/root/clone/test.sh"
    in_tree "$computer" "cd /root/clone && ./demo.sh --fresh 2"
    without=()
fi

in_tree "$computer" "cd /root/clone && . tools/packages.sh && install_packages package &&
    cmake --preset release && cmake --build --preset release --target package &&
    cpack --config build/release/CPackConfig.cmake -D CPACK_DEBIAN_PACKAGE_RELEASE=2"
in_tree "$computer" "apt-get -qq install --yes --no-install-recommends sqlite3 >/dev/null &&
    sqlite3 -bail /root/version_01.sqlite </root/clone/tests/data/version_01.sql"
# The commands above leave files only in build/, which git ignores.
[ -z "$(git -C "$computer/root/clone" status --short)" ]

# A device whose databases are on a data partition.
application=/usr/lib/fieldcomputer
mkdir -p "$device/data/databases" "$device/root/packages"
cp "$computer/root/version_01.sqlite" "$device/data/databases/my.db.sqlite"
cp "$computer"/root/clone/build/release/packages/{database-migrator,migration-guard}_*.deb \
    "$device/root/packages"
in_tree "$device" "apt-get -qq update && cd /root/packages &&
    apt-get -qq install --yes --no-install-recommends \$(find -name '*.deb' ! -name '*-2_*')"
in_tree "$device" "ln -s /data/databases $application/ &&
    cp /usr/share/doc/migration-guard/examples/schemaversion.txt $application/"

upgrade() {
    in_tree "$device" "cd /root/packages && apt-get -qq install --yes ./*-2_*.deb &&
        dpkg-query --show database-migrator migration-guard"
}

the_guard_runs() {
    in_tree "$device" "$application/migration-guard run && $application/migration-guard status &&
        sha256sum /data/databases/* $application/schemaversion.txt >/root/sums"
}

the_data_is_there() {
    in_tree "$device" "sha256sum --check /root/sums && [ -L $application/databases ]"
}

the_guard_runs
upgrade
the_data_is_there
the_guard_runs
in_tree "$device" "apt-get -qq remove --yes database-migrator"
the_data_is_there
upgrade
the_data_is_there
the_guard_runs
purge() {
    in_tree "$device" "apt-get -qq purge --yes $1
        for package in $1; do
            if dpkg-query --show \$package; then exit 1; fi
        done"
}

purge "database-migrator migration-guard"
in_tree "$device" "ls $application"
the_data_is_there

# A service computer has the report beside the two programs.
cp "$computer"/root/clone/build/release/packages/migration-report_*.deb "$device/root/packages"
cp "$computer/root/version_01.sqlite" "$device/root/customer.sqlite"
in_tree "$device" "cd /root/packages && apt-get -qq install --yes ./*-2_*.deb"
in_tree "$device" "cd /root &&
    $application/migration-guard rehearse \$(cat $application/schemaversion.txt) customer.sqlite \
        --json=customer.json &&
    migration-report customer.json >customer.html && grep --fixed-strings '</html>' customer.html"
purge "database-migrator migration-guard migration-report"
in_tree "$device" "ls /root/customer.html"
the_data_is_there
