#!/bin/bash
# Builds everything and runs all tests; tests/README.md describes them. The summary of ctest comes last,
# and its exit status is the script's.
#
#   ./test.sh             the preset dev
#   ./test.sh --asan      the same under the address and undefined-behaviour sanitizers
#   ./test.sh --coverage  the same with counters; fails below the limits of tests/coverage/gcovr.cfg
#   ./test.sh --campaign [MINUTES]  all cases of the tests that try only a sample without it, then
#                         every tests/*/*campaign.py, each for so many minutes at most; takes
#                         hours, and goes on where it stopped
set -euo pipefail

usage() {
    sed -n '2,/^set/{s/^# \?//p}' "${BASH_SOURCE[0]}"
}

preset=dev
tests=()
campaign=
case "${1:-}" in
    '') ;;
    --asan) preset=asan ;;
    --coverage)
        preset=coverage
        tests=(--exclude-regex '^fuzz_')
        ;;
    --campaign)
        export CAMPAIGN=1
        campaign=yes
        minutes=(${2:+--minutes "$2"})
        tests=(--label-regex campaign)
        ;;
    -h | --help) usage && exit ;;
    *) usage >&2 && exit 2 ;;
esac

cd "$(dirname "$(realpath "${BASH_SOURCE[0]}")")"
. tools/packages.sh
install_packages test
if [ -n "$campaign" ]; then
    install_packages campaign
    # Debian's npm cannot be installed beside one from elsewhere.
    command -v npm >/dev/null || install_packages sqlite
fi

export PYTHONDONTWRITEBYTECODE=1
cmake --preset "$preset"
cmake --build --preset "$preset"
find "build/$preset" -name '*.gcda' -delete # the counters of an earlier run
status=0
ctest --test-dir "build/$preset" --parallel "$(nproc)" --output-on-failure "${tests[@]}" || status=$?
if [ "$preset" = coverage ]; then
    gcovr --config tests/coverage/gcovr.cfg --branches --print-summary "build/$preset" || status=$?
fi
if [ -n "$campaign" ]; then
    # Each campaign keeps its answers in build/ and prints its figures at the end.
    for program in tests/*/*campaign.py; do
        # tests/support has the code that they share.
        [ ! -x "$program" ] || "$program" "${minutes[@]}" || status=$?
    done
fi
exit $status
