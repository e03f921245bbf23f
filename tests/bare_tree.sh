#!/bin/bash
# Does what a newcomer does on a bare Debian. It installs a minimal system into a scratch directory,
# clones the committed state of this tree into it, and runs a plain build of the program, ./demo.sh
# and ./test.sh there, as root. It needs root, debootstrap, git, the network, some 4 GB and a quarter
# of an hour. ./test.sh does not run it.
#
#   bare_tree.sh [MIRROR]
#
# MIRROR is where the packages come from, by default where this machine's own come from.
set -euo pipefail

root=$(cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/.." && pwd)
# shellcheck disable=SC2016 # apt-get expands it
mirror=${1:-$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Codename: bookworm' |
    head -n 1)}

# The mounts end with the process: no mount is left through which the removal below could delete
# files of the machine.
if [ -z "${BARE_TREE:-}" ]; then
    tree=$(mktemp -d "${TMPDIR:-/tmp}/bare_tree.XXXXXX")
    trap 'rm -rf --one-file-system "$tree"' EXIT
    chmod 755 "$tree" # for apt's own user
    BARE_TREE=$tree unshare --mount --propagation private "$(realpath "${BASH_SOURCE[0]}")" "$mirror"
    exit
fi

tree=$BARE_TREE
debootstrap --variant=minbase bookworm "$tree" "$mirror"
cp /etc/resolv.conf "$tree/etc/"
git clone --quiet --no-hardlinks "$root" "$tree/root/clone"

# Bubblewrap takes the root directory for a mount.
mount --bind "$tree" "$tree"
mount --rbind /dev "$tree/dev"
mount -t proc proc "$tree/proc"

in_tree() {
    printf '\n==== %s\n' "$*"
    env --ignore-environment PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
        "${without[@]}" chroot "$tree" bash -euc "$*" </dev/null
}

without=()
in_tree "cd /root/clone && . tools/packages.sh && install_packages program"
in_tree "cp -r /root/clone /root/plain && cd /root/plain && cmake -S . -B build && cmake --build build"
in_tree "mkdir -p /root/app/databases && cp /root/plain/build/database-migrator /root/app &&
    /root/app/database-migrator 1 && cat /root/app/databases/sqlMigrationErrorLog.txt"
in_tree "cd / && root/clone/demo.sh"
in_tree "cd / && root/clone/test.sh"

# Once more, without the network.
without=(unshare --net)
in_tree "/root/clone/demo.sh 1"
in_tree "/root/clone/test.sh"
in_tree "cd /root/clone && ./demo.sh --fresh 2"

# They leave files only in build/, which git ignores.
[ -z "$(git -C "$tree/root/clone" status --short)" ]
