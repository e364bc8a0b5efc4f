#!/usr/bin/env bash
# Builds Tolkaro with its tests and runs the whole suite: unit tests once, then the desktop
# tests, which bring up their own virtual X server, D-Bus, accessibility bus and window
# manager. Arguments go to ctest (for example -R gesture).
#
# A desktop test that fails is run again, up to three runs in all, and every repeat that
# was needed is printed ("tst_capture needed 2 runs"); a unit test is never repeated.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
"$root/scripts/build.sh" -DTOLKARO_BUILD_TESTS=ON
cd "$build"

status=0
ctest --output-on-failure --timeout 300 -LE desktop "$@" || status=1

failed_list=Testing/Temporary/LastTestsFailed.log
rm -f "$failed_list"
ctest --output-on-failure --timeout 300 -L desktop "$@" || true
repeats=()
if [ -s "$failed_list" ]; then
    # Lines of "NUMBER:NAME".
    for name in $(cut -d: -f2- "$failed_list"); do
        runs=1
        passed=0
        while [ "$runs" -lt 3 ]; do
            runs=$((runs + 1))
            if ctest --output-on-failure --timeout 300 -R "^${name}\$"; then
                passed=1
                break
            fi
        done
        if [ "$passed" = 1 ]; then
            repeats+=("$name needed $runs runs")
        else
            repeats+=("$name failed $runs runs")
            status=1
        fi
    done
fi
echo "== desktop tests run again: ${#repeats[@]} =="
for line in "${repeats[@]}"; do
    echo "$line"
done
exit "$status"
