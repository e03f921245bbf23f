#!/bin/bash
# Fails where clang-tidy finds a mistake in the programs' sources; .clang-tidy says what it looks for.
# A source without mistakes is looked at again when it has been compiled again.
#
#   check_mistakes.sh BUILD_DIRECTORY
set -euo pipefail

build=$(realpath "$1")
cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../.."

# shellcheck disable=SC2016 # variables of jq and of the inner shell
jq -r --arg root "$PWD/" --arg build "$build/" '
    .[] | (.file | ltrimstr($root)) as $source
    | select($source | test("^(app|schema|migrations|maintenance|guard)/"))
    | $source, $build + .output' "$build/compile_commands.json" |
    xargs -d '\n' -n 2 -P "$(nproc)" bash -euc '
        done=$0/$1.done
        if [ "$done" -nt "$2" ] && [ "$done" -nt .clang-tidy ]; then
            exit
        fi
        clang-tidy -p "${0%/*}" --quiet "$1"
        mkdir -p "${done%/*}"
        touch "$done"' "$build/clang_tidy"
