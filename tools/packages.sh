# shellcheck shell=bash
# ./demo.sh, ./test.sh and the benchmarks source this file. It installs packages that a bare Debian
# lacks.

# Installs the packages that packages.txt lists for a command. If none is missing, it does not use the
# network.
install_packages() {
    local list needed missing
    list=$(dirname "${BASH_SOURCE[0]}")/../packages.txt
    needed=$(awk -v command="$1" '!/^#/ && $2 ~ command { print $1 }' "$list" | sort)
    mapfile -t missing < <(comm -23 <(echo "$needed") <(installed_packages | sort))
    [ ${#missing[@]} -gt 0 ] || return 0

    echo "Installing the Debian packages ${missing[*]}; this takes a while"
    # The package lists of a bare system are empty or old, so they are updated first. The update may
    # fail for a source that has none of these packages: only their installation counts.
    as_root apt-get -qq update || true
    as_root apt-get -qq install --yes --no-install-recommends "${missing[@]}" >/dev/null && return 0

    echo "These packages could not be installed: ${missing[*]}" >&2
    echo "It takes a Debian 12, root or sudo, and a package source in reach." >&2
    return 1
}

installed_packages() {
    dpkg-query --show --showformat '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p'
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        DEBIAN_FRONTEND=noninteractive "$@" </dev/null
    else
        sudo DEBIAN_FRONTEND=noninteractive "$@" </dev/null
    fi
}
