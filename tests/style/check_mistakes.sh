#!/bin/bash
# Fails where clang-tidy finds a mistake in the programs' sources; .clang-tidy says what it looks for.
#
#   check_mistakes.sh BUILD_DIRECTORY
set -euo pipefail

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../.."
printf '%s\0' app/*.cpp schema/*.cpp migrations/*.cpp maintenance/*.cpp guard/*.cpp |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy -p "$1" --quiet
