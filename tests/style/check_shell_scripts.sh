#!/bin/bash
# Fails where shellcheck finds a mistake in a shell script of the tree: a file with the ending .sh, or
# one whose first line names a shell.
set -euo pipefail

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../.."
find . \( -path './build*' -o -name .git \) -prune -o -type f -print0 |
    xargs -0 awk 'FNR == 1 && (FILENAME ~ /\.sh$/ || /^#!\/bin\/(ba|da)?sh/) { print FILENAME }
                  FNR == 1 { nextfile }' |
    xargs -d '\n' shellcheck --external-sources
