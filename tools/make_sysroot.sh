#!/bin/bash
# Makes build/sysroots/ARCHITECTURE: the files of the Debian packages that the program and the guard are
# built with, for another processor. Nothing is installed on this machine, and no program for the other
# processor is run. It needs mmdebstrap and the network. The other architecture's compiler is a package
# of its own (packages.txt). A directory that exists already is left as it is.
#
#   make_sysroot.sh arm64|armhf [MIRROR]
# MIRROR is the source of Debian's packages, by default this machine's own.
set -euo pipefail

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/.."
architecture=$1
# shellcheck disable=SC2016 # apt-get expands it
mirror=${2:-$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Codename: bookworm' |
    head -n 1)}
place=build/sysroots/$architecture
[ ! -d "$place" ] || exit 0

mkdir -p build/sysroots
rm -rf "$place.unfinished"
mmdebstrap --quiet --variant=extract --architectures="$architecture" \
    --hook-dir=/usr/share/mmdebstrap/hooks/merged-usr \
    --include=qtbase5-dev,libqt5sql5-sqlite,libsqlite3-dev bookworm "$place.unfinished" "$mirror"
# The build runs Qt's tools, so they have to be this machine's.
rm -r "$place.unfinished/usr/lib/qt5/bin"
ln -s /usr/lib/qt5/bin "$place.unfinished/usr/lib/qt5/bin"
mv "$place.unfinished" "$place"
