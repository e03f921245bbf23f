#!/bin/bash
# Fails where shellcheck finds a mistake in a shell script of the tree.
set -euo pipefail

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../.."
find . \( -path './build*' -o -name .git \) -prune -o \
    \( -name '*.sh' -o -path './.ci/*' \) -type f -print0 |
    xargs -0 shellcheck --external-sources
