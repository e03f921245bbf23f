#!/bin/bash
# Fails where clang-format would change a C++ file of the tree.
set -euo pipefail

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../.."
find . -path './build*' -prune -o -name '*.cpp' -print0 -o -name '*.h' -print0 |
    xargs -0 clang-format --dry-run -Werror
